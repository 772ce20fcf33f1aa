#pragma once

#include <csignal>
#include <initializer_list>
#include <sys/signalfd.h>
#include <unistd.h>

/// Blocks the signals and makes them readable, so that an event loop handles them in order. Call this before threads
/// start: they inherit the blocked signals.
/// @return the descriptor to poll.
inline int HoldSignals(std::initializer_list<int> signalNumbers)
{
    sigset_t held;
    sigemptyset(&held);
    for (const int number : signalNumbers)
        sigaddset(&held, number);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
    return signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// Reads all pending signals from the descriptor. @return true if there were any.
inline bool TakeSignals(int descriptor)
{
    bool any = false;
    signalfd_siginfo taken;
    while (read(descriptor, &taken, sizeof taken) == sizeof taken)
        any = true;
    return any;
}
