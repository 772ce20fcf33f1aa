#pragma once

#include <QCommandLineParser>
#include <QDBusConnection>

#include <functional>

/// The start of the daemons for stock boards, apart from what Process::Prepare() does.
namespace Daemon
{

enum ExitStatus : int {
    ExitStatusDone = 0,
    ExitStatusFailed = 1, ///< a bus is missing or was lost, or another program has the daemon's name
    ExitStatusUsage = 2,
};

/// Adds --help and --version, and parses the command line. Ends the program if either is given, or if the command line
/// is wrong. Needs the application object.
void ParseOptions(QCommandLineParser& options);

/// Prints "PROGRAM: problem" on standard error and ends the program with ExitStatusUsage.
[[noreturn]] void RefuseUsage(const QString& problem);

/// Keeps the connection working, and ends the event loop with ExitStatusFailed when it is lost: the daemon is useless
/// without it, and systemd starts it again.
/// @param logOrigin the object path of the log lines.
/// @return false, with the reason logged, if there is no connection.
bool RequireBus(const QDBusConnection& bus, const char* logOrigin);

/// Calls a function in the event loop when a signal has arrived.
/// @param signalInput the descriptor from HoldSignals().
void WhenSignalled(int signalInput, QObject* context, const std::function<void()>& handler);

}
