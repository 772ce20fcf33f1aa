#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <sys/types.h>

/// Standard error, for a process that never waits for the reader of its log.
class LogStream
{
public:
    /// Keeps what standard error is now. One that is closed takes no line, whatever gets its number later.
    LogStream();
    ~LogStream();
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

    /// Writes a line, with one system call unless the reader is slow. A line that is begun is completed before the
    /// next.
    /// @return false when there is no room for the line now, or nobody to read it; nothing of it is written then.
    bool Write(std::string_view line);

private:
    std::size_t WriteSome(std::string_view text) const;
    ssize_t WriteOnce(std::string_view text) const;

    int descriptor;
    bool socket = false;
    bool pipe = false;
    std::size_t roomWhenReady = 0; ///< what poll() promises room for; 0 when the descriptor itself does not wait
    std::string rest;              ///< of the line that is begun
};
