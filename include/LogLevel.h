#pragma once

/// How much a log line matters, in the log service's own numbers.
enum LogLevel : unsigned int {
    LogLevelError = 1,    ///< an error or fatal condition
    LogLevelWarning = 2,  ///< a refusal, a failed remote request or a notable change of state
    LogLevelProgress = 4, ///< normal progress
    LogLevelRequest = 5,  ///< a request to the GSM daemon succeeded
    LogLevelTrace = 9,    ///< finest trace
};
