#pragma once

#include <QString>

/// Sends one command to the simulator that runs on the session bus and prints its answer; "log" goes on printing what
/// is asked of the device until it is interrupted.
/// @return the exit status: 0 done, 1 refused, 3 not on the bus.
int SendToRunning(const QString& command);
