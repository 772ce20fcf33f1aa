#pragma once

#include <QDBusConnection>
#include <QObject>

/// Keeps a bus connection hearing whatever peers send, and logs its loss. Lives as long as the connection is used.
class BusGuard : public QObject
{
    Q_OBJECT

public:
    explicit BusGuard(QDBusConnection connection);

Q_SIGNALS:
    /// The connection is gone for good; a lost connection never comes back in the same process.
    void Lost();

private Q_SLOTS:
    void OnDisconnected();
};
