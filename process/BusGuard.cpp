#include "BusGuard.h"

#include "BusLoss.h"
#include "Log.h"

#include <dbus/dbus.h>
#include <limits>
#include <sys/resource.h>

namespace
{

/// libdbus stops reading while received messages hold more bytes or descriptors than a limit, by default 63 MiB and
/// 4096. The thread that frees the last of them makes it resume, but Qt can switch a connection's watches only in its
/// own bus thread. So a process that has passed the limit once never receives anything again, while it still owns its
/// name. One large message is enough, or many small ones during a long blocking call. Let the service manager limit the
/// memory instead: it restarts a service that it has killed.
void LiftReceiveLimits(const QDBusConnection& connection)
{
    constexpr long NoLimit = std::numeric_limits<long>::max();
    auto* bus = static_cast<DBusConnection*>(connection.internalPointer());
    dbus_connection_set_max_received_size(bus, NoLimit);
    dbus_connection_set_max_received_unix_fds(bus, NoLimit);
}

/// The connection ends if a peer sends a descriptor when this process has no number left for it.
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
    ConnectBusLoss(connection, this, SLOT(OnDisconnected()));
}

void BusGuard::OnDisconnected()
{
    LOG_FROM(logOrigin, LogLevelError, "DBUS: Lost the connection to the bus");
    Q_EMIT Lost();
}
