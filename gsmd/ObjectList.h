#pragma once

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QList>
#include <QVariantMap>

/// A remote object and its properties, as oFono lists them.
struct RemoteObject {
    QDBusObjectPath path;
    QVariantMap properties;
};
using ObjectList = QList<RemoteObject>;
Q_DECLARE_METATYPE(RemoteObject)
Q_DECLARE_METATYPE(ObjectList)

inline QDBusArgument& operator<<(QDBusArgument& argument, const RemoteObject& object)
{
    argument.beginStructure();
    argument << object.path << object.properties;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument& operator>>(const QDBusArgument& argument, RemoteObject& object)
{
    argument.beginStructure();
    argument >> object.path >> object.properties;
    argument.endStructure();
    return argument;
}
