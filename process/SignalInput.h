#pragma once

#include <csignal>
#include <initializer_list>
#include <sys/signalfd.h>
#include <unistd.h>

/// Turns signals into input, for an event loop to take in order. To be called before there are threads, which inherit
/// that the signals are held back.
/// @return the descriptor to wait for.
inline int HoldSignals(std::initializer_list<int> signalNumbers)
{
    sigset_t held;
    sigemptyset(&held);
    for (const int number : signalNumbers)
        sigaddset(&held, number);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
    return signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// Takes all signals that have come from the descriptor. @return whether there was one.
inline bool TakeSignals(int descriptor)
{
    bool any = false;
    signalfd_siginfo taken;
    while (read(descriptor, &taken, sizeof taken) == sizeof taken)
        any = true;
    return any;
}
