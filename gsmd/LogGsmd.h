#pragma once

#include "Log.h"

/// Logs one line of the daemon at the place where it stands.
#define GSMD_LOG(level, ...) LOG_FROM(Names::GsmObject, level, __VA_ARGS__)
