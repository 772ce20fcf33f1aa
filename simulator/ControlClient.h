#pragma once

#include <QString>

/// Sends a command to the simulator on the session bus and prints its answer. "log" keeps printing requests to the
/// device until it is interrupted or the simulator ends.
/// @return the exit status: 0 done, 1 refused, 3 no simulator on the bus.
int SendToRunning(const QString& command);
