#include "ModemManagerStack.h"

#include "GsmdLog.h"
#include "ModemManagerBearer.h"
#include "ModemManagerCall.h"
#include "ModemManagerProperties.h"
#include "ModemManagerSms.h"
#include "WhenAnswered.h"

#include <QDBusArgument>
#include <QDBusMetaType>

namespace
{

constexpr char ManagerPath[] = "/org/freedesktop/ModemManager1";

/// The values of MMModemState that are used here.
enum ModemState : int {
    ModemStateFailed = -1,
    ModemStateUnknown = 0,
    ModemStateLocked = 2,
    ModemStateDisabled = 3,
    ModemStateEnabled = 6, ///< also all higher values
    ModemStateRegistered = 8,
};
/// The values of MMCallState that are used here.
enum CallState : int {
    CallStateRingingIn = 3,
    CallStateActive = 4,
    CallStateHeld = 5,
    CallStateWaiting = 6,
    CallStateTerminated = 7,
};
constexpr uint FailedReasonSimMissing = 2; ///< of MMModemStateFailedReason
constexpr uint PowerStateLow = 2;          ///< of MMModemPowerState
constexpr uint PowerStateOn = 3;
constexpr uint SmsStateReceived = 3;  ///< of MMSmsState
constexpr uint SmsPduTypeDeliver = 1; ///< of MMSmsPduType

constexpr int PowerTimeoutMs = 90000;
constexpr int CallTimeoutMs = 60000;
constexpr int SmsTimeoutMs = 120000;
/// A caller's number arrives a little after the first ring. Without one after this time, it is withheld.
constexpr int NumberLimitMs = 2000;

/// Returns whether the modem itself has answered a request that the stack passes on to it.
bool ModemAnswered(const QDBusError& error)
{
    // A refusal by the modem is an answer. If the stack does not support the request, assume that the modem works.
    return !error.isValid() || error.name().contains(QLatin1String(".Error.MobileEquipment.")) ||
           error.name().endsWith(QLatin1String(".Core.Unsupported"));
}

/// Rates how well a modem suits. The abilities of one without a card, or with a locked one, are unknown.
int Suitability(const InterfaceMap& interfaces)
{
    const QVariantMap properties = interfaces.value(ModemManagerModem::staticInterfaceName());
    if (properties.value(QStringLiteral("Drivers")).toStringList().contains(QLatin1String("bluetooth")))
        return 0;
    if (interfaces.contains(ModemManagerVoice::staticInterfaceName()))
        return 3;
    return properties.value(QStringLiteral("State")).toInt() <= ModemStateLocked ? 2 : 1;
}

StackCall::State CallStateOf(int state)
{
    switch (state) {
    case CallStateRingingIn: return StackCall::StateIncoming;
    case CallStateActive:
    case CallStateHeld: return StackCall::StateActive;
    case CallStateWaiting: return StackCall::StateWaiting;
    case CallStateTerminated: return StackCall::StateEnded;
    default: return StackCall::StateDialling;
    }
}

}

ModemManagerStack::Modem::Modem(const QString& owner, const QString& path, const QDBusConnection& bus)
    : path(path),
      modem(owner, path, bus),
      voice(owner, path, bus),
      messaging(owner, path, bus),
      state(ModemStateUnknown)
{
    modem.setTimeout(PowerTimeoutMs);
    voice.setTimeout(PingTimeoutMs);
}

ModemManagerStack::ModemManagerStack(const QDBusConnection& bus, const QString& owner, const QString& wantedModem)
    : ModemStack(wantedModem),
      bus(bus),
      owner(owner),
      objects(owner, ManagerPath, bus)
{
    qDBusRegisterMetaType<InterfaceMap>();
    qDBusRegisterMetaType<ManagedObjects>();
    // The slot below needs the type by name.
    qRegisterMetaType<QDBusMessage>("QDBusMessage");

    // Subscribe to all objects: a call or message may change before a subscription of its own would take effect.
    if (!this->bus.connect(owner, QString(), ModemManagerProperties::staticInterfaceName(),
                           QStringLiteral("PropertiesChanged"), this,
                           SLOT(OnPropertiesChanged(QString, QVariantMap, QStringList, QDBusMessage))))
        GSMD_LOG(LogLevelError, "Can't follow ModemManager");
    connect(&objects, &ModemManagerObjects::InterfacesAdded, this, &ModemManagerStack::OnInterfacesAdded);
    connect(&objects, &ModemManagerObjects::InterfacesRemoved, this, &ModemManagerStack::OnInterfacesRemoved);
    WhenAnswered(this, objects.GetManagedObjects(), [this](const QDBusPendingReply<ManagedObjects>& reply) {
        const ManagedObjects found = reply.isValid() ? reply.value() : ManagedObjects();
        for (auto object = found.begin(); object != found.end(); ++object)
            OnInterfacesAdded(object.key(), *object);
    });
}

ModemManagerStack::~ModemManagerStack() = default;

// The modem

void ModemManagerStack::OnInterfacesAdded(const QDBusObjectPath& path, const InterfaceMap& interfaces)
{
    if (!interfaces.contains(ModemManagerModem::staticInterfaceName()) && !modems.contains(path.path()))
        return;
    for (auto interface = interfaces.begin(); interface != interfaces.end(); ++interface)
        modems[path.path()].insert(interface.key(), *interface);
    // Existing modems are listed one after another: choose when all are known.
    QMetaObject::invokeMethod(this, &ModemManagerStack::ChooseModem, Qt::QueuedConnection);
}

void ModemManagerStack::OnInterfacesRemoved(const QDBusObjectPath& path, const QStringList& interfaces)
{
    if (!interfaces.contains(ModemManagerModem::staticInterfaceName()))
        return;
    modems.remove(path.path());
    if (path.path() != ModemPath())
        return;
    modem.reset();
    calls.clear();
    fetching.clear();
    unnumbered.clear();
    incomplete.clear();
    reported.clear();
    bearer.clear();
    Q_EMIT ModemChanged();
    ChooseModem();
}

void ModemManagerStack::ChooseModem()
{
    if (modem)
        return;
    const QString chosen = BestModem(modems, Suitability);
    if (chosen.isEmpty())
        return;

    modem = std::make_unique<Modem>(owner, chosen, bus);
    connect(&modem->voice, &ModemManagerVoice::CallAdded, this,
            [this](const QDBusObjectPath& path) { AddCall(path.path()); });
    connect(&modem->voice, &ModemManagerVoice::CallDeleted, this,
            [this](const QDBusObjectPath& path) { EndCall(path.path()); });
    connect(&modem->messaging, &ModemManagerMessaging::Added, this, [this](const QDBusObjectPath& path, bool received) {
        if (received)
            ReadMessage(path.path());
    });
    Fetch(chosen, ModemManagerModem::staticInterfaceName(),
          [this](const QVariantMap& properties) { OnModemProperties(properties); });
    WhenAnswered(&modem->voice, modem->voice.ListCalls(),
                 [this](const QDBusPendingReply<QList<QDBusObjectPath>>& reply) {
                     for (const QDBusObjectPath& path : reply.isValid() ? reply.value() : QList<QDBusObjectPath>())
                         AddCall(path.path());
                 });
    Q_EMIT ModemChanged();
}

void ModemManagerStack::Fetch(const QString& path, const char* interface, const Properties& then)
{
    WhenAnswered(this, ModemManagerProperties(owner, path, bus).GetAll(QLatin1String(interface)),
                 [this, then, of = ModemPath()](const QDBusPendingReply<QVariantMap>& reply) {
                     if (reply.isValid() && modem && of == ModemPath())
                         then(reply.value());
                 });
}

void ModemManagerStack::OnPropertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList&,
                                            const QDBusMessage& signal)
{
    if (interface == QLatin1String(ModemManagerModem::staticInterfaceName()) && signal.path() == ModemPath())
        OnModemProperties(changed);
    // Ignore changes of a call whose properties are being fetched: the answer is newer.
    else if (interface == QLatin1String(ModemManagerCall::staticInterfaceName()) && !fetching.contains(signal.path()))
        OnCallProperties(signal.path(), changed);
    else if (interface == QLatin1String(ModemManagerSms::staticInterfaceName()) && incomplete.contains(signal.path()))
        ReadMessage(signal.path());
}

void ModemManagerStack::OnModemProperties(const QVariantMap& properties)
{
    const bool wasOn = IsOn();
    modem->state = properties.value(QStringLiteral("State"), modem->state).toInt();
    modem->failedReason = properties.value(QStringLiteral("StateFailedReason"), modem->failedReason).toUInt();
    modem->powerState = properties.value(QStringLiteral("PowerState"), modem->powerState).toUInt();
    if (const auto sim = properties.find(QStringLiteral("Sim")); sim != properties.end()) {
        const QString path = sim->value<QDBusObjectPath>().path();
        modem->hasSim = !path.isEmpty() && path != QLatin1String("/");
    }
    const auto quality = properties.find(QStringLiteral("SignalQuality"));
    if (quality != properties.end()) {
        const QDBusArgument value = quality->value<QDBusArgument>();
        if (value.currentSignature() == QLatin1String("(ub)")) {
            uint percent = 0;
            bool recent = false;
            value.beginStructure();
            value >> percent >> recent;
            value.endStructure();
            if (recent)
                modem->strength = static_cast<int>(qMin(percent, 100u));
            // After a power-off during a check, ModemManager never checks again and leaves the strength at a recent 0.
            modem->strengthIsRecent = recent && percent > 0;
        }
    }

    if (!wasOn && IsOn())
        ReadStoredMessages();
    const bool reports = quality != properties.end() && modem->strengthIsRecent;
    if (properties.contains(QStringLiteral("State")) || properties.contains(QStringLiteral("PowerState")))
        Q_EMIT ModemChanged();
    if (reports)
        Q_EMIT StrengthChanged();
}

/// Returns whether the modem has failed because it has no SIM card. It counts as on, so that the service's SIM check
/// finds the cause.
bool ModemManagerStack::IsCardMissing() const
{
    return modem && modem->state == ModemStateFailed && modem->failedReason == FailedReasonSimMissing;
}

bool ModemManagerStack::IsOn() const
{
    return modem && (modem->state >= ModemStateEnabled || (IsCardMissing() && wantedOn));
}

bool ModemManagerStack::IsRegistered() const
{
    return modem && modem->state >= ModemStateRegistered;
}

std::optional<bool> ModemManagerStack::SimPresent() const
{
    if (!IsOn())
        return std::nullopt;
    return modem->hasSim && !IsCardMissing();
}

bool ModemManagerStack::TakePowerStep(bool on, const Done& done)
{
    if (!modem)
        return false;
    const bool wasOn = IsOn();
    const bool newlyWanted = on && !wantedOn;
    wantedOn = on;
    if (newlyWanted && wasOn)
        ReadStoredMessages();
    if (wasOn != IsOn())
        QMetaObject::invokeMethod(this, &ModemStack::ModemChanged, Qt::QueuedConnection);

    const bool disabled = modem->state == ModemStateDisabled;
    const bool enabled = modem->state >= ModemStateEnabled;
    if (on ? disabled : enabled) {
        WhenAnswered(this, modem->modem.Enable(on),
                     [done](const QDBusPendingReply<>& reply) { done(!reply.isError()); });
        return true;
    }
    if (!on && disabled && modem->powerState == PowerStateOn && modem->canPowerDown) {
        WhenAnswered(this, modem->modem.SetPowerState(PowerStateLow), [this, done](const QDBusPendingReply<>& reply) {
            // Many modems do not support this and stay disabled but powered.
            if (reply.isError() && modem)
                modem->canPowerDown = false;
            done(true);
        });
        return true;
    }
    return false;
}

void ModemManagerStack::Ping(const Done& done)
{
    // ModemManager asks the modem for the strength every 30 s and marks the last answer when it is too old.
    if (modem->strengthIsRecent) {
        QMetaObject::invokeMethod(
            this, [done] { done(true); }, Qt::QueuedConnection);
        return;
    }
    WhenAnswered(this, modem->voice.CallWaitingQuery(),
                 [done](const QDBusPendingReply<bool>& reply) { done(ModemAnswered(reply.error())); });
}

// Calls

void ModemManagerStack::AddCall(const QString& path)
{
    if (calls.contains(path))
        return;
    calls.insert(path, {path, StackCall::StateDialling, QString()});
    fetching.insert(path);
    unnumbered.insert(path);
    Fetch(path, ModemManagerCall::staticInterfaceName(), [this, path](const QVariantMap& properties) {
        fetching.remove(path);
        OnCallProperties(path, properties);
    });
}

void ModemManagerStack::OnCallProperties(const QString& path, const QVariantMap& properties)
{
    const auto call = calls.find(path);
    if (call == calls.end())
        return;
    if (const auto state = properties.find(QStringLiteral("State")); state != properties.end())
        call->state = CallStateOf(state->toInt());
    call->number = properties.value(QStringLiteral("Number"), call->number).toString();

    if (call->state == StackCall::StateEnded) {
        EndCall(path);
    } else if (call->state != StackCall::StateIncoming || !call->number.isEmpty() || !unnumbered.contains(path)) {
        ReportCall(path);
    } else {
        QTimer::singleShot(NumberLimitMs, this, [this, path] {
            if (unnumbered.contains(path))
                ReportCall(path);
        });
    }
}

void ModemManagerStack::ReportCall(const QString& path)
{
    unnumbered.remove(path);
    if (const auto call = calls.constFind(path); call != calls.constEnd())
        Q_EMIT CallChanged(StackCall(*call));
}

/// ModemManager keeps calls until they are deleted.
void ModemManagerStack::EndCall(const QString& path)
{
    fetching.remove(path);
    unnumbered.remove(path);
    if (calls.remove(path) == 0)
        return;
    if (modem)
        modem->voice.DeleteCall(QDBusObjectPath(path));
    Q_EMIT CallChanged({path, StackCall::StateEnded, QString()});
}

void ModemManagerStack::Dial(const QString& number, const std::function<void(const QString& id)>& done)
{
    if (!modem) {
        QMetaObject::invokeMethod(
            this, [done] { done(QString()); }, Qt::QueuedConnection);
        return;
    }
    WhenAnswered(this, modem->voice.CreateCall({{QStringLiteral("number"), number}}),
                 [this, number, done](const QDBusPendingReply<QDBusObjectPath>& reply) {
                     const QString path = reply.isValid() ? reply.value().path() : QString();
                     if (!path.isEmpty())
                         calls.insert(path, {path, StackCall::StateDialling, number});
                     done(path);
                     if (path.isEmpty())
                         return;
                     ModemManagerCall call(owner, path, bus);
                     call.setTimeout(CallTimeoutMs);
                     WhenAnswered(this, call.Start(), [this, path](const QDBusPendingReply<>& started) {
                         if (started.isError())
                             EndCall(path);
                     });
                 });
}

void ModemManagerStack::Answer(const QString& id, const Done& done)
{
    WhenAnswered(this, ModemManagerCall(owner, id, bus).Accept(),
                 [done](const QDBusPendingReply<>& reply) { done(!reply.isError()); });
}

void ModemManagerStack::Hangup(const QString& id, const Done& done)
{
    // Most modems would end the active call instead of the waiting one.
    if (calls.value(id).state == StackCall::StateWaiting) {
        QMetaObject::invokeMethod(
            this, [done] { done(false); }, Qt::QueuedConnection);
        return;
    }
    WhenAnswered(this, ModemManagerCall(owner, id, bus).Hangup(), [this, id, done](const QDBusPendingReply<>& reply) {
        if (reply.isError() && IsGone(reply.error()))
            EndCall(id);
        done(!reply.isError());
    });
}

// Messages

void ModemManagerStack::SendSms(const QString& recipient, const QString& text, const Done& done)
{
    WhenAnswered(this, modem->messaging.Create({{QStringLiteral("number"), recipient}, {QStringLiteral("text"), text}}),
                 [this, done, deadline = QDeadlineTimer(SmsLimitMs)](const QDBusPendingReply<QDBusObjectPath>& reply) {
                     const auto end = [this, path = reply.isError() ? QDBusObjectPath() : reply.value(),
                                       done](bool sent) {
                         done(sent);
                         if (modem && !path.path().isEmpty())
                             modem->messaging.Delete(path);
                     };
                     // The service regards a late message as lost.
                     if (reply.isError() || deadline.hasExpired())
                         return end(false);
                     ModemManagerSms sms(owner, reply.value().path(), bus);
                     sms.setTimeout(SmsTimeoutMs);
                     WhenAnswered(this, sms.Send(), [end](const QDBusPendingReply<>& sent) { end(!sent.isError()); });
                 });
}

/// Reads the messages that arrived while this daemon did not listen. It waits until the service has asked for the
/// modem, and so listens itself.
void ModemManagerStack::ReadStoredMessages()
{
    if (!wantedOn)
        return;
    WhenAnswered(&modem->messaging, modem->messaging.List(),
                 [this](const QDBusPendingReply<QList<QDBusObjectPath>>& reply) {
                     for (const QDBusObjectPath& path : reply.isValid() ? reply.value() : QList<QDBusObjectPath>())
                         ReadMessage(path.path());
                 });
}

void ModemManagerStack::ReadMessage(const QString& path)
{
    Fetch(path, ModemManagerSms::staticInterfaceName(),
          [this, path](const QVariantMap& properties) { OnMessageProperties(path, properties); });
}

void ModemManagerStack::OnMessageProperties(const QString& path, const QVariantMap& properties)
{
    if (!wantedOn || reported.contains(path) ||
        properties.value(QStringLiteral("PduType")).toUInt() != SmsPduTypeDeliver)
        return;
    if (properties.value(QStringLiteral("State")).toUInt() != SmsStateReceived) {
        incomplete.insert(path);
        return;
    }
    incomplete.remove(path);
    reported.insert(path);
    const QVariantMap info{{QStringLiteral("Sender"), properties.value(QStringLiteral("Number")).toString()},
                           {QStringLiteral("SentTime"), properties.value(QStringLiteral("Timestamp")).toString()}};
    Q_EMIT MessageReceived(properties.value(QStringLiteral("Text")).toString(), info);
    WhenAnswered(&modem->messaging, modem->messaging.Delete(QDBusObjectPath(path)),
                 [this, path](const QDBusPendingReply<>& deleted) {
                     if (!deleted.isError())
                         reported.remove(path);
                 });
}

// Data connection

void ModemManagerStack::SetApn(const Apn& apn, const Done& done)
{
    // There is one connection at a time: delete the existing bearers, which also disconnects them.
    WhenAnswered(
        this, modem->modem.ListBearers(), [this, apn, done](const QDBusPendingReply<QList<QDBusObjectPath>>& reply) {
            for (const QDBusObjectPath& path : reply.isValid() && modem ? reply.value() : QList<QDBusObjectPath>())
                modem->modem.DeleteBearer(path);
            CreateBearer(apn, done);
        });
}

void ModemManagerStack::CreateBearer(const Apn& apn, const Done& done)
{
    bearer.clear();
    if (!modem) {
        done(false);
        return;
    }
    QVariantMap properties{{QStringLiteral("apn"), apn.name}};
    if (!apn.username.isEmpty())
        properties.insert(QStringLiteral("user"), apn.username);
    if (!apn.password.isEmpty())
        properties.insert(QStringLiteral("password"), apn.password);
    WhenAnswered(this, modem->modem.CreateBearer(properties),
                 [this, done](const QDBusPendingReply<QDBusObjectPath>& reply) {
                     if (reply.isValid())
                         bearer = reply.value().path();
                     done(reply.isValid());
                 });
}

void ModemManagerStack::Connect(const Apn& apn, const Done& done)
{
    if (bearer.isEmpty()) {
        CreateBearer(apn, [this, apn, done](bool created) { created ? Connect(apn, done) : done(false); });
        return;
    }
    ModemManagerBearer proxy(owner, bearer, bus);
    proxy.setTimeout(PowerTimeoutMs);
    WhenAnswered(this, proxy.Connect(), [this, done](const QDBusPendingReply<>& reply) {
        if (reply.isError() && IsGone(reply.error()))
            bearer.clear();
        done(!reply.isError());
    });
}
