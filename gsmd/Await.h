#pragma once

#include <QDBusError>
#include <QDBusPendingCallWatcher>

/// Has a function called with a remote call's answer, when it is there, unless the owner is gone by then.
template <typename Reply, typename Then>
void Await(QObject* owner, const Reply& reply, Then then)
{
    auto* watcher = new QDBusPendingCallWatcher(reply, owner);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, owner, [watcher, then] {
        watcher->deleteLater();
        then(Reply(*watcher));
    });
}

/// Tells from the answer to a request whether the remote object does not exist any more.
inline bool IsGone(const QDBusError& error)
{
    return error.type() == QDBusError::UnknownObject || error.type() == QDBusError::UnknownMethod ||
           error.type() == QDBusError::UnknownInterface;
}
