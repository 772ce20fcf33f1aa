#pragma once

#include <QDBusError>
#include <QDBusPendingCallWatcher>

/// Calls a function with the answer to a remote call as soon as it arrives, unless the owner has been destroyed by
/// then.
template <typename Reply, typename Then>
void WhenAnswered(QObject* owner, const Reply& reply, Then then)
{
    auto* watcher = new QDBusPendingCallWatcher(reply, owner);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, owner, [watcher, then] {
        watcher->deleteLater();
        then(Reply(*watcher));
    });
}

/// Returns whether the error means that the remote object no longer exists.
inline bool IsGone(const QDBusError& error)
{
    return error.type() == QDBusError::UnknownObject || error.type() == QDBusError::UnknownMethod ||
           error.type() == QDBusError::UnknownInterface;
}
