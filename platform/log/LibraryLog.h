#pragma once

#include <LogInterface.h>

/// Its address is null in a process that does not define a log client.
extern LogInterface* _logInterface __attribute__((weak));

#include "Log.h"

/// Logs one line of a device library that names the place of this macro, if the process has a log client.
#define LIBRARY_LOG(origin, level, ...)                                                                                \
    do {                                                                                                               \
        if (&_logInterface && _logInterface)                                                                           \
            LOG_FROM(origin, level, __VA_ARGS__);                                                                      \
    } while (false)
