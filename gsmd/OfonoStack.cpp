#include "OfonoStack.h"

#include "GsmdLog.h"
#include "OfonoConnectionContext.h"
#include "OfonoMessage.h"
#include "OfonoVoiceCall.h"
#include "WhenAnswered.h"

#include <QDBusMetaType>

#include <algorithm>

namespace
{

constexpr char ManagerPath[] = "/";
constexpr char InternetContext[] = "internet";

// oFono gives a modem 20 s to change its power, and some drivers more.
constexpr int PowerTimeoutMs = 60000;
constexpr int DialTimeoutMs = 60000;

QString ErrorName(const char* name)
{
    return QStringLiteral("org.ofono.Error.") + QLatin1String(name);
}

/// Returns whether the modem itself has answered a request that the stack passes on to it.
bool ModemAnswered(const QDBusError& error)
{
    // A refusal is an answer. If the stack does not support the request, assume that the modem works.
    return !error.isValid() || error.name() == ErrorName("Failed") || error.name() == ErrorName("NotImplemented") ||
           error.name() == ErrorName("AccessDenied");
}

QSet<QString> InterfacesOf(const QVariant& value)
{
    const QStringList names = value.toStringList();
    return {names.begin(), names.end()};
}

/// Rates how well a modem suits. The abilities of one that is off are unknown.
int Suitability(const QVariantMap& properties)
{
    const QString type = properties.value(QStringLiteral("Type")).toString();
    if (type == QLatin1String("hfp") || type == QLatin1String("sap")) // somebody else's phone, by Bluetooth
        return 0;
    const QSet<QString> interfaces = InterfacesOf(properties.value(QStringLiteral("Interfaces")));
    if (interfaces.contains(OfonoVoiceCallManager::staticInterfaceName()))
        return 3;
    return properties.value(QStringLiteral("Powered")).toBool() ? 1 : 2;
}

}

OfonoStack::Modem::Modem(const QString& owner, const QString& path, const QDBusConnection& bus)
    : path(path),
      modem(owner, path, bus),
      sim(owner, path, bus),
      network(owner, path, bus),
      voice(owner, path, bus),
      messages(owner, path, bus),
      connections(owner, path, bus)
{
    modem.setTimeout(PowerTimeoutMs);
    voice.setTimeout(DialTimeoutMs);
    network.setTimeout(PingTimeoutMs);
}

OfonoStack::OfonoStack(const QDBusConnection& bus, const QString& owner, const QString& wantedModem)
    : ModemStack(wantedModem),
      bus(bus),
      owner(owner),
      manager(owner, ManagerPath, bus)
{
    qDBusRegisterMetaType<RemoteObject>();
    qDBusRegisterMetaType<ObjectList>();
    // The slots below need the types by name.
    qRegisterMetaType<QDBusVariant>("QDBusVariant");
    qRegisterMetaType<QDBusMessage>("QDBusMessage");

    // Subscribe to all objects: a call or message may change before a subscription of its own would take effect.
    const bool followed =
        this->bus.connect(owner, QString(), OfonoVoiceCall::staticInterfaceName(), QStringLiteral("PropertyChanged"),
                          this, SLOT(OnCallProperty(QString, QDBusVariant, QDBusMessage))) &&
        this->bus.connect(owner, QString(), OfonoMessage::staticInterfaceName(), QStringLiteral("PropertyChanged"),
                          this, SLOT(OnMessageProperty(QString, QDBusVariant, QDBusMessage)));
    if (!followed)
        GSMD_LOG(LogLevelError, "Can't follow the calls and messages of oFono");
    connect(&manager, &OfonoManager::ModemAdded, this, &OfonoStack::OnModemAdded);
    connect(&manager, &OfonoManager::ModemRemoved, this, &OfonoStack::OnModemRemoved);
    WhenAnswered(this, manager.GetModems(), [this](const QDBusPendingReply<ObjectList>& reply) {
        for (const RemoteObject& object : reply.isValid() ? reply.value() : ObjectList())
            OnModemAdded(object.path, object.properties);
    });
}

OfonoStack::~OfonoStack() = default;

// The modem

void OfonoStack::OnModemAdded(const QDBusObjectPath& path, const QVariantMap& properties)
{
    modems.insert(path.path(), properties);
    // Existing modems are listed one after another: choose when all are known.
    QMetaObject::invokeMethod(this, &OfonoStack::ChooseModem, Qt::QueuedConnection);
}

void OfonoStack::OnModemRemoved(const QDBusObjectPath& path)
{
    modems.remove(path.path());
    if (path.path() != ModemPath())
        return;
    modem.reset();
    EndAllMessages();
    calls.clear();
    context.clear();
    Q_EMIT ModemChanged();
    ChooseModem();
}

void OfonoStack::ChooseModem()
{
    if (modem)
        return;
    const QString chosen = BestModem(modems, Suitability);
    if (chosen.isEmpty())
        return;

    modem = std::make_unique<Modem>(owner, chosen, bus);
    Follow(modem->modem, &OfonoStack::OnModemProperty);
    Follow(modem->sim, &OfonoStack::OnSimProperty);
    Follow(modem->network, &OfonoStack::OnNetworkProperty);
    Follow(modem->connections, &OfonoStack::OnConnectionProperty);
    connect(&modem->voice, &OfonoVoiceCallManager::CallAdded, this, &OfonoStack::OnCallAdded);
    connect(&modem->voice, &OfonoVoiceCallManager::CallRemoved, this,
            [this](const QDBusObjectPath& path) { EndCall(path.path()); });
    const auto onMessage = [this](const QString& text, const QVariantMap& info) { Q_EMIT MessageReceived(text, info); };
    connect(&modem->messages, &OfonoMessageManager::IncomingMessage, this, onMessage);
    connect(&modem->messages, &OfonoMessageManager::ImmediateMessage, this, onMessage);
    Fetch(modem->modem, &OfonoStack::OnModemProperty);
    Q_EMIT ModemChanged();
}

template <typename Interface>
void OfonoStack::Follow(Interface& interface, Property onProperty)
{
    connect(&interface, &Interface::PropertyChanged, this,
            [this, onProperty](const QString& name, const QDBusVariant& value) {
                (this->*onProperty)(name, value.variant());
            });
}

template <typename Interface>
void OfonoStack::Fetch(Interface& interface, Property onProperty)
{
    WhenAnswered(&interface, interface.GetProperties(),
                 [this, onProperty](const QDBusPendingReply<QVariantMap>& reply) {
                     const QVariantMap properties = reply.isValid() ? reply.value() : QVariantMap();
                     for (auto property = properties.begin(); property != properties.end(); ++property)
                         (this->*onProperty)(property.key(), *property);
                 });
}

void OfonoStack::OnModemProperty(const QString& name, const QVariant& value)
{
    if (name == QLatin1String("Powered"))
        modem->powered = value.toBool();
    else if (name == QLatin1String("Online"))
        modem->online = value.toBool();
    else if (name == QLatin1String("Interfaces"))
        OnInterfaces(InterfacesOf(value));
    else
        return;
    Q_EMIT ModemChanged();
}

/// Fetches the properties of new interfaces and forgets those of lost ones.
void OfonoStack::OnInterfaces(const QSet<QString>& interfaces)
{
    const QSet<QString> gained = QSet<QString>(interfaces).subtract(modem->interfaces);
    const QSet<QString> lost = QSet<QString>(modem->interfaces).subtract(interfaces);
    modem->interfaces = interfaces;

    if (lost.contains(OfonoSimManager::staticInterfaceName()))
        modem->simPresent.reset();
    if (lost.contains(OfonoNetworkRegistration::staticInterfaceName())) {
        modem->registered = false;
        modem->strength.reset();
    }
    if (lost.contains(OfonoConnectionManager::staticInterfaceName()))
        modem->attached = false;
    if (lost.contains(OfonoMessageManager::staticInterfaceName()))
        EndAllMessages();
    if (lost.contains(OfonoVoiceCallManager::staticInterfaceName()))
        EndAllCalls();

    if (gained.contains(OfonoSimManager::staticInterfaceName()))
        Fetch(modem->sim, &OfonoStack::OnSimProperty);
    if (gained.contains(OfonoNetworkRegistration::staticInterfaceName()))
        Fetch(modem->network, &OfonoStack::OnNetworkProperty);
    if (gained.contains(OfonoConnectionManager::staticInterfaceName()))
        Fetch(modem->connections, &OfonoStack::OnConnectionProperty);
    if (gained.contains(OfonoMessageManager::staticInterfaceName())) {
        for (const int id : messages.keys())
            SubmitMessage(id);
    }
    if (gained.contains(OfonoVoiceCallManager::staticInterfaceName())) {
        WhenAnswered(&modem->voice, modem->voice.GetCalls(), [this](const QDBusPendingReply<ObjectList>& reply) {
            for (const RemoteObject& object : reply.isValid() ? reply.value() : ObjectList())
                OnCallAdded(object.path, object.properties);
        });
    }
}

void OfonoStack::OnSimProperty(const QString& name, const QVariant& value)
{
    if (name == QLatin1String("Present"))
        modem->simPresent = value.toBool();
}

void OfonoStack::OnNetworkProperty(const QString& name, const QVariant& value)
{
    if (name == QLatin1String("Status")) {
        const QString status = value.toString();
        modem->registered = status == QLatin1String("registered") || status == QLatin1String("roaming");
        Q_EMIT RegistrationChanged();
    } else if (name == QLatin1String("Strength")) {
        modem->strength = value.toInt();
        Q_EMIT StrengthChanged();
    }
}

void OfonoStack::OnConnectionProperty(const QString& name, const QVariant& value)
{
    if (name != QLatin1String("Attached"))
        return;
    modem->attached = value.toBool();
    TryLink();
}

bool OfonoStack::TakePowerStep(bool on, const Done& done)
{
    if (!modem)
        return false;
    if (modem->powered != on)
        return SetModem(QStringLiteral("Powered"), on, done);
    // Wait for the SIM manager first: with a dead modem, oFono would wait for an answer without limit and accept no
    // power-off meanwhile.
    if (on && !modem->online && Has(OfonoSimManager::staticInterfaceName()))
        return SetModem(QStringLiteral("Online"), true, done);
    return false;
}

bool OfonoStack::SetModem(const QString& name, bool value, const Done& done)
{
    WhenAnswered(this, modem->modem.SetProperty(name, QDBusVariant(value)),
                 [this, path = modem->path, name, value, done](const QDBusPendingReply<>& reply) {
                     // The answer arrives before the signal.
                     if (!reply.isError() && path == ModemPath())
                         OnModemProperty(name, value);
                     done(!reply.isError());
                 });
    return true;
}

void OfonoStack::Ping(const Done& done)
{
    WhenAnswered(this, modem->network.Register(),
                 [done](const QDBusPendingReply<>& reply) { done(ModemAnswered(reply.error())); });
}

// Calls

void OfonoStack::OnCallAdded(const QDBusObjectPath& path, const QVariantMap& properties)
{
    StackCall call;
    call.id = path.path();
    for (auto property = properties.begin(); property != properties.end(); ++property)
        SetCallProperty(call, property.key(), *property);
    calls.insert(call.id, call);
    Q_EMIT CallChanged(call);
}

void OfonoStack::OnCallProperty(const QString& name, const QDBusVariant& value, const QDBusMessage& signal)
{
    const auto call = calls.find(signal.path());
    if (call == calls.end())
        return;
    SetCallProperty(*call, name, value.variant());
    if (call->state == StackCall::StateEnded)
        EndCall(signal.path());
    else
        Q_EMIT CallChanged(StackCall(*call));
}

void OfonoStack::SetCallProperty(StackCall& call, const QString& name, const QVariant& value)
{
    static const QMap<QString, StackCall::State> states = {
        {QStringLiteral("dialing"), StackCall::StateDialling},  {QStringLiteral("alerting"), StackCall::StateDialling},
        {QStringLiteral("incoming"), StackCall::StateIncoming}, {QStringLiteral("waiting"), StackCall::StateWaiting},
        {QStringLiteral("active"), StackCall::StateActive},     {QStringLiteral("held"), StackCall::StateActive},
        {QStringLiteral("disconnected"), StackCall::StateEnded}};

    if (name == QLatin1String("State"))
        call.state = states.value(value.toString(), call.state);
    else if (name == QLatin1String("LineIdentification"))
        call.number = value.toString() == QLatin1String("withheld") ? QString() : value.toString();
}

void OfonoStack::EndCall(const QString& id)
{
    if (calls.remove(id) > 0)
        Q_EMIT CallChanged({id, StackCall::StateEnded, QString()});
}

void OfonoStack::EndAllCalls()
{
    for (const QString& id : calls.keys())
        EndCall(id);
}

void OfonoStack::Dial(const QString& number, const std::function<void(const QString& id)>& done)
{
    if (!modem) {
        QMetaObject::invokeMethod(
            this, [done] { done(QString()); }, Qt::QueuedConnection);
        return;
    }
    WhenAnswered(this, modem->voice.Dial(number, QString()), [done](const QDBusPendingReply<QDBusObjectPath>& reply) {
        done(reply.isValid() ? reply.value().path() : QString());
    });
}

void OfonoStack::Answer(const QString& id, const Done& done)
{
    WhenAnswered(this, OfonoVoiceCall(owner, id, bus).Answer(),
                 [done](const QDBusPendingReply<>& reply) { done(!reply.isError()); });
}

void OfonoStack::Hangup(const QString& id, const Done& done)
{
    WhenAnswered(this, OfonoVoiceCall(owner, id, bus).Hangup(), [this, id, done](const QDBusPendingReply<>& reply) {
        if (reply.isError() && IsGone(reply.error())) {
            calls.remove(id);
            Q_EMIT CallChanged({id, StackCall::StateEnded, QString()});
        }
        done(!reply.isError());
    });
}

// Messages

void OfonoStack::SendSms(const QString& recipient, const QString& text, const Done& done)
{
    const int id = ++lastMessage;
    messages.insert(id, {recipient, text, done, QString()});
    QTimer::singleShot(SmsLimitMs, this, [this, id] { GiveUpMessage(id); });
    // The modem may be registered before oFono can send.
    if (Has(OfonoMessageManager::staticInterfaceName()))
        SubmitMessage(id);
}

void OfonoStack::SubmitMessage(int id)
{
    const Message& message = messages[id];
    WhenAnswered(this, modem->messages.SendMessage(message.recipient, message.text),
                 [this, id](const QDBusPendingReply<QDBusObjectPath>& reply) {
                     if (reply.isError())
                         EndMessage(id, false);
                     else if (const auto submitted = messages.find(id); submitted != messages.end())
                         submitted->path = reply.value().path();
                     else
                         OfonoMessage(owner, reply.value().path(), bus).Cancel();
                 });
}

/// Cancels a message that the service regards as lost. oFono cannot cancel what the modem is already sending.
void OfonoStack::GiveUpMessage(int id)
{
    const QString path = messages.take(id).path;
    if (!path.isEmpty())
        OfonoMessage(owner, path, bus).Cancel();
}

void OfonoStack::OnMessageProperty(const QString& name, const QDBusVariant& value, const QDBusMessage& signal)
{
    const QString state = name == QLatin1String("State") ? value.variant().toString() : QString();
    if (state != QLatin1String("sent") && state != QLatin1String("failed"))
        return;
    for (auto message = messages.cbegin(); message != messages.cend(); ++message) {
        if (message->path == signal.path())
            return EndMessage(message.key(), state == QLatin1String("sent"));
    }
}

void OfonoStack::EndMessage(int id, bool sent)
{
    if (const Done done = messages.take(id).done)
        done(sent);
}

void OfonoStack::EndAllMessages()
{
    for (const int id : messages.keys())
        EndMessage(id, false);
}

// Data connection

void OfonoStack::SetApn(const Apn& apn, const Done& done)
{
    FindContext([this, apn, done](bool found) {
        if (!found) {
            done(false);
            return;
        }
        // The access point can only be changed while disconnected.
        WriteContext({{QStringLiteral("Active"), false},
                      {QStringLiteral("AccessPointName"), apn.name},
                      {QStringLiteral("Username"), apn.username},
                      {QStringLiteral("Password"), apn.password}},
                     done);
    });
}

/// Finds the context of the internet connection, or creates it.
void OfonoStack::FindContext(const Done& done)
{
    WhenAnswered(this, modem->connections.GetContexts(), [this, done](const QDBusPendingReply<ObjectList>& reply) {
        const ObjectList contexts = reply.isValid() ? reply.value() : ObjectList();
        const auto found = std::find_if(contexts.begin(), contexts.end(), [](const RemoteObject& object) {
            return object.properties.value(QStringLiteral("Type")).toString() == QLatin1String(InternetContext);
        });
        if (found != contexts.end()) {
            context = found->path.path();
            done(true);
        } else if (reply.isError() || !modem) {
            done(false);
        } else {
            WhenAnswered(this, modem->connections.AddContext(InternetContext),
                         [this, done](const QDBusPendingReply<QDBusObjectPath>& added) {
                             if (added.isValid())
                                 context = added.value().path();
                             done(added.isValid());
                         });
        }
    });
}

/// Sets properties of the context one after the other. Stops at the first that is refused.
void OfonoStack::WriteContext(const QList<QPair<QString, QVariant>>& properties, const Done& done)
{
    if (properties.isEmpty()) {
        done(true);
        return;
    }
    OfonoConnectionContext proxy(owner, context, bus);
    WhenAnswered(this, proxy.SetProperty(properties.first().first, QDBusVariant(properties.first().second)),
                 [this, properties, done](const QDBusPendingReply<>& reply) {
                     if (reply.isError())
                         done(false);
                     else
                         WriteContext(properties.mid(1), done);
                 });
}

bool OfonoStack::CanConnect() const
{
    return modem && modem->attached;
}

void OfonoStack::Connect(const Apn&, const Done& done)
{
    FindContext([this, done](bool found) {
        if (found)
            WriteContext({{QStringLiteral("Active"), true}}, done);
        else
            done(false);
    });
}
