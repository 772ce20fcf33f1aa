#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <sys/types.h>

/// Writes to standard error without ever waiting for its reader.
class LogStream
{
public:
    /// Duplicates the current standard error. If it is closed, no line is ever written, even if another file gets its
    /// number later.
    LogStream();
    ~LogStream();
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

    /// Writes a line, with one system call unless the reader is slow. Completes a line that was begun before it starts
    /// the next.
    /// @return false if there is no room now, or no reader; then no part of the line is written.
    bool Write(std::string_view line);

private:
    std::size_t WriteSome(std::string_view text) const;
    ssize_t WriteOnce(std::string_view text) const;

    int descriptor;
    bool socket = false;
    bool pipe = false;
    std::size_t roomWhenReady = 0; ///< bytes that fit once poll() reports room; 0 for a non-blocking descriptor
    std::string rest;              ///< unwritten end of the line that was begun
};
