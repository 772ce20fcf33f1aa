#pragma once

#include <QJsonObject>
#include <QString>

/// The exit status of phonectl.
enum ExitStatus : int {
    ExitDone = 0,
    ExitRefused = 1, ///< the service or the contacts database refused, or the followed request failed
    ExitUsage = 2,
    ExitNotOnBus = 3,
    ExitTimedOut = 4,      ///< --timeout; the request goes on
    ExitInterrupted = 130, ///< Ctrl-C: 128 + SIGINT, as in shells; the request goes on
};

/// The result of a command.
struct Outcome {
    QString text;                     ///< for a person; empty if everything has been printed
    QJsonObject details;              ///< for --json
    ExitStatus exitStatus = ExitDone; ///< another one if the text describes a fault
};

/// Thrown by a command that fails.
struct Failure {
    ExitStatus exitStatus;
    QString text;
    int serviceStatus = 0; ///< the service's status code if it has refused the request
};
