// A minimal service on QtDBus, to compare with: one object with one method that relays one signal of another service.

#include "Names.h"

#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QVariantMap>

#include <cstdio>

class MinimalObject : public QObject
{
    Q_OBJECT

Q_SIGNALS:
    void SmsReceived(QString Text, QVariantMap Info);

public Q_SLOTS:
    void OnMessageReceived(const QString& text, const QVariantMap& info) { Q_EMIT SmsReceived(text, info); }
};

class MinimalAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "bench.Minimal")

public:
    explicit MinimalAdaptor(QObject* parent) : QDBusAbstractAdaptor(parent) { setAutoRelaySignals(true); }

Q_SIGNALS:
    void SmsReceived(QString Text, QVariantMap Info);

public Q_SLOTS:
    int GetStatus(uint& PhoneStatus, uint& SimStatus, uint& Rssi, uint& UserEnabled, bool& Forced)
    {
        PhoneStatus = SimStatus = Rssi = UserEnabled = 0;
        Forced = false;
        return 0;
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    std::fputs("started\n", stderr);

    MinimalObject object;
    MinimalAdaptor adaptor(&object);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.connect(Names::GsmService, "/bench/qt", Names::GsmInterface, "MessageReceived", &object,
                     SLOT(OnMessageReceived(QString, QVariantMap))) ||
        !bus.registerObject("/bench/qt", &object) || !bus.registerService("bench.Qt"))
        return 1;
    return QCoreApplication::exec();
}

#include "minimal_qt.moc"
