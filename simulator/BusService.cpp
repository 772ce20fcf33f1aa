#include "BusService.h"

#include "BusValues.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QTimer>

BusService::BusService(const QString& shortName, const char* busName, const char* objectPath, const char* interface)
    : shortName(shortName),
      busName(busName),
      objectPath(objectPath),
      interface(InterfaceDescription::BuiltIn(interface))
{
}

BusService::~BusService()
{
    Leave();
}

void BusService::Handle(const QString& method, const Handler& handler)
{
    Q_ASSERT(interface.Methods().contains(method));
    handlers.insert(method, handler);
}

void BusService::CheckComplete() const
{
    if (handlers.keys() != interface.Methods().keys())
        qFatal("Not every method of %s is handled", qPrintable(interface.Name()));
}

QString BusService::Join()
{
    if (onBus)
        return {};

    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, ConnectionName());
    if (!bus.isConnected())
        return QStringLiteral("no session bus");
    onBus = true;
    ++session;
    if (bus.registerVirtualObject(objectPath, this) && bus.registerService(busName)) {
        Q_EMIT Joined();
        return {};
    }
    Leave();
    return QStringLiteral("the name %1 is taken: a real service or another simulator is on this bus").arg(busName);
}

void BusService::Leave()
{
    if (!onBus)
        return;
    onBus = false;
    QDBusConnection(ConnectionName()).unregisterObject(objectPath);
    QDBusConnection::disconnectFromBus(ConnectionName());
}

void BusService::Send(const QString& signal, const QVariantList& arguments)
{
    const QStringList types = interface.Signals().value(signal);
    Q_ASSERT(interface.Signals().contains(signal) && types.size() == arguments.size());

    if (!onBus && !reportsOffBus)
        return;
    Q_EMIT SignalSent(shortName + QLatin1Char(' ') + signal + ToText(arguments));
    if (!onBus)
        return;
    QDBusMessage message = QDBusMessage::createSignal(objectPath, interface.Name(), signal);
    for (int i = 0; i < types.size(); ++i)
        message << ToBusType(arguments.at(i), types.at(i));
    QDBusConnection(ConnectionName()).send(message);
}

QString BusService::introspect(const QString&) const
{
    return interface.Element();
}

void BusService::RecordRequest(const QString& method, const QVariantList& arguments)
{
    Q_EMIT RequestReceived(shortName + QLatin1Char(' ') + method + ToText(arguments));
}

QStringList BusService::Faults() const
{
    QStringList texts;
    for (auto fault = faults.begin(); fault != faults.end(); ++fault)
        texts.append(fault.key() + QLatin1Char(' ') + fault->text);
    return texts;
}

std::optional<Fault> BusService::TakeFault(const QString& method)
{
    const auto found = faults.find(method);
    if (found == faults.end())
        return std::nullopt;
    const Fault fault = *found;
    if (found->times && --*found->times == 0)
        faults.erase(found);
    return fault;
}

Answer BusService::Execute(const QDBusMessage& request, const std::optional<Fault>& fault)
{
    const bool refused = fault && fault->kind == Fault::Status;
    // A method that returns values changes nothing, so a failure may return them, too.
    const bool isQuery = interface.Methods().value(request.member()).out.size() > 1;

    Answer answer;
    if (!refused || isQuery)
        answer = handlers.value(request.member())(request.arguments());
    if (refused)
        answer.status = fault->number;
    return answer;
}

void BusService::Reply(const QDBusMessage& reply)
{
    if (onBus)
        QDBusConnection(ConnectionName()).send(reply);
}

bool BusService::handleMessage(const QDBusMessage& message, const QDBusConnection&)
{
    const QString method = message.member();
    const bool known = interface.Methods().contains(method);
    const bool isOurs = message.interface() == interface.Name() || (message.interface().isEmpty() && known);
    if (message.type() != QDBusMessage::MethodCallMessage || !isOurs)
        return false;
    if (!known) {
        Reply(message.createErrorReply(QDBusError::UnknownMethod,
                                       QStringLiteral("%1 has no method %2").arg(interface.Name(), method)));
        return true;
    }

    const InterfaceDescription::Method types = interface.Methods().value(method);
    if (message.signature() != types.in.join(QString())) {
        Reply(message.createErrorReply(QDBusError::InvalidArgs,
                                       QStringLiteral("%1 takes \"%2\"").arg(method, types.in.join(QString()))));
        return true;
    }
    RecordRequest(method, message.arguments());

    const std::optional<Fault> fault = TakeFault(method);
    if (fault && fault->kind == Fault::Silent)
        return true;
    if (fault && fault->kind == Fault::Error) {
        Reply(message.createErrorReply(fault->error, QStringLiteral("Injected fault")));
        return true;
    }

    const Answer answer = Execute(message, fault);
    QVariantList values{answer.status};
    for (int i = 1; i < types.out.size(); ++i)
        values.append(ToBusType(answer.values.value(i - 1), types.out.at(i)));
    const QDBusMessage reply = message.createReply(values);

    if (fault && fault->kind == Fault::Delay) {
        QTimer::singleShot(fault->number, this, [this, reply, askedIn = session] {
            if (askedIn == session)
                Reply(reply);
        });
    } else {
        Reply(reply);
    }
    return true;
}
