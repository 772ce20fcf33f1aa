#pragma once

#include "Names.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QThread>

#include <functional>

/// Stands for the GSM daemon and the audio services, in a thread of its own: the test waits for the service, which
/// waits for its peers.
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

    /// Makes the GSM daemon or one of the audio services join the bus or leave it.
    bool Join(const char* service) { return bus.registerService(service); }
    bool Leave(const char* service) { return bus.unregisterService(service); }

    /// Sends a signal of the GSM daemon.
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
