#pragma once

#include "ManagedObjects.h"
#include "ModemManagerMessaging.h"
#include "ModemManagerModem.h"
#include "ModemManagerObjects.h"
#include "ModemManagerVoice.h"
#include "ModemStack.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QMap>
#include <QSet>

#include <memory>

/// The modem stack ModemManager.
class ModemManagerStack : public ModemStack
{
    Q_OBJECT

public:
    static constexpr char Service[] = "org.freedesktop.ModemManager1";

    /// @param owner the unique name of the process that owns the service's name.
    /// @param wantedModem the modem's object path, or empty for the first that can carry calls.
    ModemManagerStack(const QDBusConnection& bus, const QString& owner, const QString& wantedModem);
    ~ModemManagerStack() override;

    QString ModemPath() const override { return modem ? modem->path : QString(); }
    bool IsOn() const override;
    bool IsRegistered() const override;
    std::optional<bool> SimPresent() const override;
    std::optional<int> Strength() const override { return modem ? modem->strength : std::nullopt; }

    bool TakePowerStep(bool on, const Done& done) override;
    void Ping(const Done& done) override;
    void Dial(const QString& number, const std::function<void(const QString& id)>& done) override;
    void Answer(const QString& id, const Done& done) override;
    void Hangup(const QString& id, const Done& done) override;
    void SendSms(const QString& recipient, const QString& text, const Done& done) override;
    void SetApn(const Apn& apn, const Done& done) override;

private Q_SLOTS:
    void OnPropertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated,
                             const QDBusMessage& signal);

private:
    /// The modem in use and its state as ModemManager reports it. It is replaced when another modem is chosen.
    struct Modem {
        Modem(const QString& owner, const QString& path, const QDBusConnection& bus);

        const QString path;
        ModemManagerModem modem;
        ModemManagerVoice voice;
        ModemManagerMessaging messaging;

        int state;
        uint failedReason = 0;
        uint powerState = 0;
        bool canPowerDown = true; ///< until ModemManager has refused it
        bool hasSim = false;
        std::optional<int> strength;
        bool strengthIsRecent = false;
    };

    void OnInterfacesAdded(const QDBusObjectPath& path, const InterfaceMap& interfaces);
    void OnInterfacesRemoved(const QDBusObjectPath& path, const QStringList& interfaces);
    void ChooseModem();
    void OnModemProperties(const QVariantMap& properties);
    bool IsCardMissing() const;

    using Properties = std::function<void(const QVariantMap& properties)>;
    void Fetch(const QString& path, const char* interface, const Properties& then);

    void AddCall(const QString& path);
    void OnCallProperties(const QString& path, const QVariantMap& properties);
    void ReportCall(const QString& path);
    void EndCall(const QString& path);

    void ReadStoredMessages();
    void ReadMessage(const QString& path);
    void OnMessageProperties(const QString& path, const QVariantMap& properties);

    bool CanConnect() const override { return IsRegistered(); }
    void Connect(const Apn& apn, const Done& done) override;
    void CreateBearer(const Apn& apn, const Done& done);

    QDBusConnection bus;
    const QString owner;
    ModemManagerObjects objects;
    QMap<QString, InterfaceMap> modems; ///< all known modems, by path
    std::unique_ptr<Modem> modem;
    bool wantedOn = false;

    QMap<QString, StackCall> calls;
    QSet<QString> fetching;   ///< calls whose properties are not known yet
    QSet<QString> unnumbered; ///< incoming calls whose number may still arrive
    QSet<QString> incomplete; ///< messages of which parts are missing
    QSet<QString> reported;   ///< messages that were reported and that ModemManager still stores

    QString bearer;
};
