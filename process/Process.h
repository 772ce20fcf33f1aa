#pragma once

// What a daemon needs around its event loop.

namespace Process
{

/// Opens /dev/null on those of the descriptors 0 to 2 that are closed, so that no socket gets their numbers and with
/// them the log, ignores SIGPIPE, so that a reader of the log that dies takes nobody with it, and leads Qt's own
/// messages into the log, which never waits for its reader. To be called before anything is opened.
/// @param logOrigin object path that Qt's messages are logged under.
void Prepare(const char* logOrigin);

/// Holds SIGINT and SIGTERM back in this thread and in those that it starts, until the event loop runs: the loop's
/// exit() has no effect before exec(), and a request to stop must not be lost.
/// To be called once there is an application object, and before the signals' handlers are installed.
void HoldTermination();

}
