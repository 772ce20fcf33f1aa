#pragma once

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

/// Turns SIGINT and SIGTERM into input, for an event loop to end in order. To be called before there are threads, which
/// inherit that the signals are held back.
/// @return the descriptor to wait for.
inline int HoldTerminationSignals()
{
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGINT);
    sigaddset(&held, SIGTERM);
    sigprocmask(SIG_BLOCK, &held, nullptr);
    return signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// Takes a signal from the descriptor.
inline void ReadTerminationSignal(int descriptor)
{
    signalfd_siginfo signal;
    while (read(descriptor, &signal, sizeof signal) > 0) {
    }
}
