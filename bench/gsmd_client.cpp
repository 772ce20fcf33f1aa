// Measures how long kova-gsmd takes to pass on a signal: acts as oFono on the system bus, reports a new signal strength
// repeatedly, and receives the daemon's signal on the session bus. Prints nanoseconds, one measurement on each line.
// usage: gsmd_client COUNT

#include "Names.h"
#include "ObjectList.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QVariantMap>

#include <cstdio>
#include <cstdlib>

namespace
{

constexpr char Service[] = "org.ofono";
constexpr char Modem[] = "/bench";
constexpr char Network[] = "org.ofono.NetworkRegistration";

}

/// An oFono with one modem that is on and registered.
class BenchClient : public QDBusVirtualObject
{
    Q_OBJECT

public:
    explicit BenchClient(int count) : left(count) {}

    void Start()
    {
        QDBusMessage enable =
            QDBusMessage::createMethodCall(Names::GsmService, Names::GsmObject, Names::GsmInterface, "ModemSetEnabled");
        enable << true;
        QDBusConnection::sessionBus().asyncCall(enable);
    }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override
    {
        const QVariantMap on{
            {"Powered", true}, {"Online", true}, {"Type", "hardware"}, {"Interfaces", QStringList{Network}}};
        QDBusMessage reply = message.createReply();
        if (message.member() == QLatin1String("GetModems"))
            reply << QVariant::fromValue(ObjectList{{QDBusObjectPath(Modem), on}});
        else if (message.member() == QLatin1String("GetProperties"))
            reply << (message.interface() == QLatin1String(Network)
                          ? QVariantMap{{"Status", "registered"}, {"Strength", QVariant::fromValue<uchar>(1)}}
                          : on);
        return bus.send(reply);
    }

public Q_SLOTS:
    void OnSignalQuality(uchar)
    {
        if (sent.isValid())
            std::printf("%lld\n", static_cast<long long>(sent.nsecsElapsed()));
        if (left-- == 0) {
            QCoreApplication::quit();
            return;
        }
        QDBusMessage signal = QDBusMessage::createSignal(Modem, Network, "PropertyChanged");
        signal << "Strength" << QVariant::fromValue(QDBusVariant(QVariant::fromValue<uchar>(left % 100)));
        sent.start();
        QDBusConnection::systemBus().send(signal);
    }

private:
    int left;
    QElapsedTimer sent;
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    qDBusRegisterMetaType<RemoteObject>();
    qDBusRegisterMetaType<ObjectList>();
    BenchClient client(argc > 1 ? std::atoi(argv[1]) : 100);
    QDBusConnection system = QDBusConnection::systemBus();
    if (!QDBusConnection::sessionBus().connect(Names::GsmService, QString(), Names::GsmInterface, "SignalQuality",
                                               &client, SLOT(OnSignalQuality(uchar))) ||
        !system.registerVirtualObject("/", &client, QDBusConnection::SubPath) || !system.registerService(Service))
        return 1;
    client.Start();
    return QCoreApplication::exec();
}

#include "gsmd_client.moc"
