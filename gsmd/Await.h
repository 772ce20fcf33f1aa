#pragma once

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
