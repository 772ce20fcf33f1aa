#pragma once

#include "Names.h"

#include <QDBusConnection>
#include <QObject>

/// Keeps a bus connection hearing whatever peers send, and logs its loss. Lives as long as the connection is used.
class BusGuard : public QObject
{
    Q_OBJECT

public:
    /// @param logOrigin object path that the loss is logged under.
    explicit BusGuard(QDBusConnection connection, const char* logOrigin = Names::PhoneObject);

Q_SIGNALS:
    /// The connection is gone for good; a lost connection never comes back in the same process.
    void Lost();

private Q_SLOTS:
    void OnDisconnected();

private:
    const char* logOrigin;
};
