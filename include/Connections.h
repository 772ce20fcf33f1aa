#pragma once

#include <QObject>

#include <algorithm>
#include <initializer_list>

/// A signal and its slot, as SIGNAL() and SLOT() write them.
struct SignalToSlot {
    const char* signal;
    const char* slot;
};

/// Makes the connections in their order and stops at the first that fails.
/// @return true if all were made.
inline bool ConnectAll(const QObject* sender, const QObject* receiver, std::initializer_list<SignalToSlot> connections)
{
    return std::all_of(connections.begin(), connections.end(), [&](const SignalToSlot& connection) {
        return bool(QObject::connect(sender, connection.signal, receiver, connection.slot));
    });
}
