#pragma once

#include "Log.h"

/// Logs a line of the daemon, with the place of the statement.
#define GSMD_LOG(level, ...) LOG_FROM(Names::GsmObject, level, __VA_ARGS__)
