#pragma once

#include "ModemStack.h"
#include "ObjectList.h"
#include "OfonoConnectionManager.h"
#include "OfonoManager.h"
#include "OfonoMessageManager.h"
#include "OfonoModem.h"
#include "OfonoNetworkRegistration.h"
#include "OfonoSimManager.h"
#include "OfonoVoiceCallManager.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QMap>
#include <QSet>

#include <memory>

/// The modem stack oFono.
class OfonoStack : public ModemStack
{
    Q_OBJECT

public:
    static constexpr char Service[] = "org.ofono";

    /// @param owner the unique name of the process that owns the service's name.
    /// @param wantedModem the modem's object path, or empty for the first that can carry calls.
    OfonoStack(const QDBusConnection& bus, const QString& owner, const QString& wantedModem);
    ~OfonoStack() override;

    QString ModemPath() const override { return modem ? modem->path : QString(); }
    bool IsOn() const override { return modem && modem->powered; }
    bool IsRegistered() const override { return IsOn() && modem->registered; }
    std::optional<bool> SimPresent() const override { return IsOn() ? modem->simPresent : std::nullopt; }
    std::optional<int> Strength() const override { return modem ? modem->strength : std::nullopt; }

    bool TakePowerStep(bool on, const Done& done) override;
    void Ping(const Done& done) override;
    void Dial(const QString& number, const std::function<void(const QString& id)>& done) override;
    void Answer(const QString& id, const Done& done) override;
    void Hangup(const QString& id, const Done& done) override;
    void SendSms(const QString& recipient, const QString& text, const Done& done) override;
    void SetApn(const Apn& apn, const Done& done) override;

private Q_SLOTS:
    void OnCallProperty(const QString& name, const QDBusVariant& value, const QDBusMessage& signal);
    void OnMessageProperty(const QString& name, const QDBusVariant& value, const QDBusMessage& signal);

private:
    /// The modem in use and its state as oFono reports it. It is replaced when another modem is chosen.
    struct Modem {
        Modem(const QString& owner, const QString& path, const QDBusConnection& bus);

        const QString path;
        OfonoModem modem;
        OfonoSimManager sim;
        OfonoNetworkRegistration network;
        OfonoVoiceCallManager voice;
        OfonoMessageManager messages;
        OfonoConnectionManager connections;

        bool powered = false;
        bool online = false;
        QSet<QString> interfaces;
        std::optional<bool> simPresent;
        bool registered = false;
        std::optional<int> strength;
        bool attached = false; ///< to the network's data service
    };

    void OnModemAdded(const QDBusObjectPath& path, const QVariantMap& properties);
    void OnModemRemoved(const QDBusObjectPath& path);
    void ChooseModem();

    using Property = void (OfonoStack::*)(const QString& name, const QVariant& value);
    template <typename Interface>
    void Follow(Interface& interface, Property onProperty);
    template <typename Interface>
    void Fetch(Interface& interface, Property onProperty);
    void OnModemProperty(const QString& name, const QVariant& value);
    void OnSimProperty(const QString& name, const QVariant& value);
    void OnNetworkProperty(const QString& name, const QVariant& value);
    void OnConnectionProperty(const QString& name, const QVariant& value);
    void OnInterfaces(const QSet<QString>& interfaces);
    bool Has(const QString& interface) const { return modem && modem->interfaces.contains(interface); }
    bool SetModem(const QString& name, bool value, const Done& done);

    void OnCallAdded(const QDBusObjectPath& path, const QVariantMap& properties);
    void SetCallProperty(StackCall& call, const QString& name, const QVariant& value);
    void EndCall(const QString& id);
    void EndAllCalls();

    /// A message that is being sent.
    struct Message {
        QString recipient;
        QString text;
        Done done;
        QString path; ///< empty until oFono has accepted it
    };
    void SubmitMessage(int id);
    void GiveUpMessage(int id);
    void EndMessage(int id, bool sent);
    void EndAllMessages();

    bool CanConnect() const override;
    void Connect(const Apn& apn, const Done& done) override;
    void FindContext(const Done& done);
    void WriteContext(const QList<QPair<QString, QVariant>>& properties, const Done& done);

    QDBusConnection bus;
    const QString owner;
    OfonoManager manager;
    QMap<QString, QVariantMap> modems; ///< all known modems, by path
    std::unique_ptr<Modem> modem;
    QMap<QString, StackCall> calls;
    QMap<int, Message> messages;
    int lastMessage = 0;

    QString context; ///< of the internet connection
};
