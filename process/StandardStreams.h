#pragma once

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

/// Opens /dev/null on each closed standard stream, or a socket would get its descriptor. Call this before anything is
/// opened.
/// @param inputMode of standard input, as in open(2). @param outputMode of the other two.
inline void FillClosedStreams(int inputMode, int outputMode)
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        // open() returns the lowest free number, which is this one: those below are open by now.
        if (fcntl(stream, F_GETFD) < 0 && errno == EBADF)
            static_cast<void>(open("/dev/null", stream == STDIN_FILENO ? inputMode : outputMode));
    }
}
