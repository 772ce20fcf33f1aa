#pragma once

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QMap>
#include <QObject>
#include <QStringList>

/// Watches the system bus for modem stacks and uses the first one that appears, until it leaves.
class ModemStackFinder : public QObject
{
    Q_OBJECT

public:
    ModemStackFinder(const QDBusConnection& bus, const QStringList& services);

Q_SIGNALS:
    /// @param owner the unique name of the process that owns the service's name.
    void Found(const QString& service, const QString& owner);
    void Lost();

private:
    void OnOwner(const QString& service, const QString& owner);

    const QStringList services;
    QDBusServiceWatcher watcher;
    QMap<QString, QString> owners;
    QString current;
};
