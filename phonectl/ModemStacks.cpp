#include "ModemStacks.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QVariantMap>

namespace
{

constexpr char BusConnection[] = "modem-stacks";
constexpr int TimeoutMs = 5000;
constexpr char OfonoService[] = "org.ofono";
constexpr char ModemManagerService[] = "org.freedesktop.ModemManager1";
constexpr char ModemManagerModem[] = "org.freedesktop.ModemManager1.Modem";

QDBusArgument Ask(const char* service, const char* path, const char* interface, const char* method)
{
    const QDBusMessage answer =
        QDBusConnection(QLatin1String(BusConnection))
            .call(QDBusMessage::createMethodCall(QLatin1String(service), QLatin1String(path), QLatin1String(interface),
                                                 QLatin1String(method)),
                  QDBus::Block, TimeoutMs);
    return answer.arguments().value(0).value<QDBusArgument>();
}

QString Text(const QVariantMap& properties, const char* name)
{
    return properties.value(QLatin1String(name)).toString();
}

QStringList OfonoModems()
{
    QStringList modems;
    const QDBusArgument array = Ask(OfonoService, "/", "org.ofono.Manager", "GetModems");
    if (array.currentSignature() != QLatin1String("a(oa{sv})"))
        return modems;
    array.beginArray();
    while (!array.atEnd()) {
        QDBusObjectPath path;
        QVariantMap properties;
        array.beginStructure();
        array >> path >> properties;
        array.endStructure();
        modems.append(
            QStringLiteral("oFono: %1 %2 %3, %4, %5")
                .arg(path.path(), Text(properties, "Manufacturer"), Text(properties, "Model"),
                     QLatin1String(properties.value(QStringLiteral("Powered")).toBool() ? "powered" : "not powered"),
                     QLatin1String(properties.value(QStringLiteral("Online")).toBool() ? "online" : "offline"))
                .simplified());
    }
    array.endArray();
    return modems;
}

QStringList ModemManagerModems()
{
    QStringList modems;
    const QDBusArgument objects = Ask(ModemManagerService, "/org/freedesktop/ModemManager1",
                                      "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
    if (objects.currentSignature() != QLatin1String("a{oa{sa{sv}}}"))
        return modems;
    objects.beginMap();
    while (!objects.atEnd()) {
        QDBusObjectPath path;
        QMap<QString, QVariantMap> interfaces;
        objects.beginMapEntry();
        objects >> path >> interfaces;
        objects.endMapEntry();
        if (const QVariantMap modem = interfaces.value(QLatin1String(ModemManagerModem)); !modem.isEmpty())
            modems.append(QStringLiteral("ModemManager: %1 %2 %3, state %4")
                              .arg(path.path(), Text(modem, "Manufacturer"), Text(modem, "Model"), Text(modem, "State"))
                              .simplified());
    }
    objects.endMap();
    return modems;
}

}

ModemStacks::ModemStacks()
{
    const QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, QLatin1String(BusConnection));
    if (!bus.isConnected()) {
        problem = QStringLiteral("no system bus: ") + bus.lastError().message();
        return;
    }
    if (bus.interface()->isServiceRegistered(QLatin1String(OfonoService))) {
        names.append(QStringLiteral("oFono"));
        modems += OfonoModems();
    }
    if (bus.interface()->isServiceRegistered(QLatin1String(ModemManagerService))) {
        names.append(QStringLiteral("ModemManager"));
        modems += ModemManagerModems();
    }
}
