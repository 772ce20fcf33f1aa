#include "LogStream.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

/// Writes without raising SIGPIPE. A library may not ignore that signal for the whole process.
ssize_t WriteUnsignalled(int descriptor, std::string_view text)
{
    sigset_t brokenPipe;
    sigset_t blocked;
    sigset_t pending;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &blocked);
    sigpending(&pending);

    const ssize_t written = write(descriptor, text.data(), text.size());
    const int error = errno;
    constexpr timespec atOnce = {};
    if (written < 0 && error == EPIPE && !sigismember(&pending, SIGPIPE))
        sigtimedwait(&brokenPipe, nullptr, &atOnce);
    pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
    errno = error;
    return written;
}

}

LogStream::LogStream() : descriptor(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0))
{
    struct stat status = {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0)
        return;
    socket = S_ISSOCK(status.st_mode);
    pipe = S_ISFIFO(status.st_mode);
    if (!pipe && !isatty(descriptor))
        return; // send() has a flag not to wait, and a file has no reader.

    // O_NONBLOCK belongs to the open file, which other processes share: open the pipe or terminal once more.
    const int own = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own >= 0) {
        close(descriptor);
        descriptor = own;
    } else { // Another user's pipe or terminal cannot be opened again.
        roomWhenReady = pipe ? PIPE_BUF : 1;
    }
}

LogStream::~LogStream()
{
    if (descriptor >= 0)
        close(descriptor);
}

bool LogStream::Write(std::string_view line)
{
    rest.erase(0, WriteSome(rest));
    if (!rest.empty())
        return false;
    const std::size_t written = WriteSome(line);
    if (written > 0)
        rest = line.substr(written);
    return written > 0;
}

/// @return the number of bytes written.
std::size_t LogStream::WriteSome(std::string_view text) const
{
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t length = WriteOnce(text.substr(written));
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0)
            break;
        written += length;
    }
    return written;
}

ssize_t LogStream::WriteOnce(std::string_view text) const
{
    if (socket)
        return send(descriptor, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (roomWhenReady > 0) {
        pollfd stream = {descriptor, POLLOUT, 0};
        if (poll(&stream, 1, 0) <= 0 || !(stream.revents & POLLOUT))
            return 0;
        text = text.substr(0, roomWhenReady);
    }
    return pipe ? WriteUnsignalled(descriptor, text) : write(descriptor, text.data(), text.size());
}
