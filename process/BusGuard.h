#pragma once

#include "Names.h"

#include <QDBusConnection>
#include <QObject>

/// Keeps a bus connection working whatever its peers send, and logs its loss. Keep the guard while the connection is in
/// use.
class BusGuard : public QObject
{
    Q_OBJECT

public:
    /// @param logOrigin the object path that the loss is logged under.
    explicit BusGuard(QDBusConnection connection, const char* logOrigin = Names::PhoneObject);

Q_SIGNALS:
    /// The connection is lost. The same process cannot connect again.
    void Lost();

private Q_SLOTS:
    void OnDisconnected();

private:
    const char* logOrigin;
};
