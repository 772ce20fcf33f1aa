#pragma once

#include <QDBusConnection>

/// Connects a slot to the loss of a bus connection. The bus library emits the signal inside the process.
/// @param slot a SLOT().
inline bool ConnectBusLoss(QDBusConnection bus, QObject* receiver, const char* slot)
{
    return bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                       QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), receiver, slot);
}
