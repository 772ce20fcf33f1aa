#pragma once

#include <QJsonObject>
#include <QString>

/// What phonectl tells the shell.
enum ExitStatus : int {
    ExitDone = 0,
    ExitRefused = 1, ///< the service or the contacts database refused, or what was followed ended badly
    ExitUsage = 2,
    ExitNotOnBus = 3,
    ExitTimedOut = 4,      ///< --timeout; what was asked for goes on
    ExitInterrupted = 130, ///< Ctrl-C, as shells count it; what was asked for goes on
};

/// How a command ended.
struct Outcome {
    QString text;                     ///< for a person; empty when all has been said
    QJsonObject details;              ///< for --json
    ExitStatus exitStatus = ExitDone; ///< other when the text says what is amiss
};

/// Thrown when a command did not end well.
struct Failure {
    ExitStatus exitStatus;
    QString text;
    int serviceStatus = 0; ///< the service's status code, when it refused
};
