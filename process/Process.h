#pragma once

/// Set-up that a daemon needs before its event loop.
namespace Process
{

/// Call this before anything is opened. It
/// - opens /dev/null on those of the descriptors 0 to 2 that are closed, so that no socket gets such a number and
///   receives the log;
/// - ignores SIGPIPE, so that the process survives the reader of its log;
/// - sends Qt's messages to the log, which never waits for its reader.
/// @param logOrigin the object path that Qt's messages are logged under.
void Prepare(const char* logOrigin);

/// Blocks SIGINT and SIGTERM, in this thread and those that it starts, until the event loop runs: exit() has no effect
/// before exec(), and a request to stop must not be lost. Call this when the application object exists, before the
/// handlers are installed.
void HoldTermination();

}
