#pragma once

#include <QObject>

#include <algorithm>
#include <initializer_list>

/// A signal and the slot that it goes to, as SIGNAL() and SLOT() write them.
struct SignalToSlot {
    const char* signal;
    const char* slot;
};

/// Connects in the order given and stops at the first connection that fails.
inline bool ConnectAll(const QObject* sender, const QObject* receiver, std::initializer_list<SignalToSlot> connections)
{
    return std::all_of(connections.begin(), connections.end(), [&](const SignalToSlot& connection) {
        return bool(QObject::connect(sender, connection.signal, receiver, connection.slot));
    });
}
