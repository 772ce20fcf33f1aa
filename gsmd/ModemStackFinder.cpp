#include "ModemStackFinder.h"

#include "GsmdLog.h"
#include "WhenAnswered.h"

#include <QDBusConnectionInterface>
#include <QDBusPendingReply>

ModemStackFinder::ModemStackFinder(const QDBusConnection& bus, const QStringList& services) : services(services)
{
    watcher.setConnection(bus);
    watcher.setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    watcher.setWatchedServices(services);
    connect(&watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString& service, const QString&, const QString& owner) { OnOwner(service, owner); });

    // serviceOwner() would block until the answer.
    for (const QString& service : services) {
        const QDBusPendingReply<QString> reply = bus.interface()->asyncCall(QStringLiteral("GetNameOwner"), service);
        WhenAnswered(this, reply, [this, service](const QDBusPendingReply<QString>& owner) {
            if (owner.isValid())
                OnOwner(service, owner.value());
        });
    }
}

void ModemStackFinder::OnOwner(const QString& service, const QString& owner)
{
    if (owners.value(service) == owner)
        return;
    owners.insert(service, owner);
    if (current == service) {
        current.clear();
        GSMD_LOG(LogLevelWarning, "%s has left", qPrintable(service));
        Q_EMIT Lost();
    }
    for (const QString& candidate : services) {
        if (!current.isEmpty() || owners.value(candidate).isEmpty())
            continue;
        current = candidate;
        GSMD_LOG(LogLevelProgress, "Using %s", qPrintable(candidate));
        Q_EMIT Found(candidate, owners.value(candidate));
    }
}
