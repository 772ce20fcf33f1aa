#include "BusGuard.h"

#include "Log.h"

#include <dbus/dbus.h>
#include <limits>
#include <sys/resource.h>

namespace
{

/// libdbus stops reading while more than so many bytes or descriptors of received messages are in use, by default 63
/// MiB and 4096, and begins again from the thread that frees the last of them. Qt can switch a connection's watches
/// only in the thread of its own that reads from the bus, so that a process which has once passed the limit hears
/// nothing any more, while it keeps its name. One large message is enough, or many small ones during a long blocking
/// call. Let the service manager limit the memory instead: a service that is killed for it is started again.
void LiftReceiveLimits(const QDBusConnection& connection)
{
    constexpr long NoLimit = std::numeric_limits<long>::max();
    auto* bus = static_cast<DBusConnection*>(connection.internalPointer());
    dbus_connection_set_max_received_size(bus, NoLimit);
    dbus_connection_set_max_received_unix_fds(bus, NoLimit);
}

/// A descriptor that a peer sends and that finds no room ends the connection.
void RaiseDescriptorLimit()
{
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0 && descriptors.rlim_cur < descriptors.rlim_max) {
        descriptors.rlim_cur = descriptors.rlim_max;
        setrlimit(RLIMIT_NOFILE, &descriptors);
    }
}

}

BusGuard::BusGuard(QDBusConnection connection, const char* logOrigin) : logOrigin(logOrigin)
{
    RaiseDescriptorLimit();
    LiftReceiveLimits(connection);
    // The bus library sends this signal to its own process.
    connection.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                       QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                       SLOT(OnDisconnected()));
}

void BusGuard::OnDisconnected()
{
    LOG_FROM(logOrigin, LogLevelError, "DBUS: Lost the connection to the bus");
    Q_EMIT Lost();
}
