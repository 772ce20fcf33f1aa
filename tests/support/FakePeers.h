#pragma once

#include "Names.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QThread>

#include <functional>

/// Takes the place of the GSM daemon and the audio services. It answers in a thread of its own, because the test blocks
/// on the service while the service blocks on its peers.
class FakePeers : public QDBusVirtualObject
{
public:
    using Answer = std::function<QDBusMessage(const QDBusMessage& call)>;

    explicit FakePeers(const Answer& answer) : answer(answer)
    {
        moveToThread(&thread);
        thread.start();
        for (const char* object :
             {Names::GsmObject, Names::SoundManagerObject, Names::AudioOutCtlObject, Names::AudioInCtlObject})
            bus.registerVirtualObject(object, this);
    }
    ~FakePeers() override
    {
        QDBusConnection::disconnectFromBus(bus.name());
        thread.quit();
        thread.wait();
    }

    /// Acquires or releases the bus name of the GSM daemon or of an audio service.
    bool Join(const char* service) { return bus.registerService(service); }
    bool Leave(const char* service) { return bus.unregisterService(service); }

    /// Emits a signal of the GSM daemon.
    void Send(const char* signal, const QVariantList& arguments)
    {
        QDBusMessage message = QDBusMessage::createSignal(Names::GsmObject, Names::GsmInterface, signal);
        message.setArguments(arguments);
        bus.send(message);
    }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        return message.type() == QDBusMessage::MethodCallMessage && connection.send(answer(message));
    }

private:
    const Answer answer;
    QThread thread;
    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "peers");
};
