#pragma once

#include <QDBusObjectPath>
#include <QMap>
#include <QVariantMap>

/// The interfaces of an object with their properties, and the objects with their interfaces, as an object manager lists
/// them.
using InterfaceMap = QMap<QString, QVariantMap>;
using ManagedObjects = QMap<QDBusObjectPath, InterfaceMap>;
Q_DECLARE_METATYPE(InterfaceMap)
Q_DECLARE_METATYPE(ManagedObjects)
