#pragma once

#include "Names.h"
#include "SourcePlace.h"

#include <LogInterface.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <source_location>

/// The process's log client: made first of all by main() and never deleted, so that static objects can log to the very
/// end. Exported from the executable, where the device's libraries find it.
extern LogInterface* _logInterface;

/// How much a log line matters, in the log service's own numbers.
enum LogLevel : unsigned int {
    LogLevelError = 1,    ///< an error or fatal condition
    LogLevelWarning = 2,  ///< a refusal, a failed remote request or a notable change of state
    LogLevelProgress = 4, ///< normal progress
    LogLevelRequest = 5,  ///< a request to the GSM daemon succeeded
    LogLevelTrace = 9,    ///< finest trace
};

/// Formats one line, "[file:line] signature: message", and hands it to the log. Longer lines are cut.
/// @param where the statement that the line belongs to; a shared procedure passes its caller's place on.
/// @param origin object path that the line is attributed to.
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

/// Logs one line at the place where it stands. Inside a lambda the place would be the lambda's: use LOG_AT() with the
/// outer place there.
#define LOG_FROM(origin, level, ...) LogAt(std::source_location::current(), level, origin, __VA_ARGS__)

/// Logs one line of the service at the place where it stands.
#define LOG(level, ...) LOG_FROM(Names::PhoneObject, level, __VA_ARGS__)

/// Logs one line of the service at a place that was passed on.
#define LOG_AT(where, level, ...) LogAt(where, level, Names::PhoneObject, __VA_ARGS__)
