#pragma once

#include "LogLevel.h"
#include "Names.h"
#include "SourcePlace.h"

#include <LogInterface.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <source_location>

/// The process's log client. main() creates it before anything logs, and never deletes it, because static objects log
/// until the end. The executable exports it for the device's libraries.
extern LogInterface* _logInterface;

/// Formats one line, "[file:line] signature: message", and passes it to the log. A line is cut after 511 bytes.
/// @param where the place that the line names; a shared procedure passes on that of its caller.
/// @param origin the object path that the line is logged under.
__attribute__((format(printf, 4, 5))) inline void LogAt(const std::source_location& where, LogLevel level,
                                                        const char* origin, const char* format, ...)
{
    constexpr std::size_t LineSize = 512;

    char line[LineSize];
    const int prefix = FormatPlace(line, LineSize, where);
    const std::size_t used = std::min<std::size_t>(std::max(prefix, 0), LineSize - 1);

    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line + used, LineSize - used, format, arguments);
    va_end(arguments);

    _logInterface->EmitLogString(level, line, origin);
}

/// Logs one line that names the place of this macro. Inside a lambda that place is the lambda: use LOG_AT() with the
/// outer place instead.
#define LOG_FROM(origin, level, ...) LogAt(std::source_location::current(), level, origin, __VA_ARGS__)

/// Logs one line of the service that names the place of this macro.
#define LOG(level, ...) LOG_FROM(Names::PhoneObject, level, __VA_ARGS__)

/// Logs one line of the service that names a given place.
#define LOG_AT(where, level, ...) LogAt(where, level, Names::PhoneObject, __VA_ARGS__)
