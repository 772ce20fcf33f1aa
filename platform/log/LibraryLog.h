#pragma once

#include <LogInterface.h>

/// Null in a process that has no log client.
extern LogInterface* _logInterface __attribute__((weak));

#include "Log.h"

/// Logs one line of a device library at the place where it stands, if the process has a log client.
#define LIBRARY_LOG(origin, level, ...)                                                                                \
    do {                                                                                                               \
        if (&_logInterface && _logInterface)                                                                           \
            LOG_FROM(origin, level, __VA_ARGS__);                                                                      \
    } while (false)
