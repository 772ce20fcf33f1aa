#include "BusService.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QTimer>

BusService::BusService(const QString& shortName, const char* busName, const char* objectPath, const char* interface)
    : shortName(shortName),
      busName(busName),
      objectPath(objectPath),
      interface(BuiltInDescription(interface))
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
    ++visit;
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

    if (!onBus && !narrating)
        return;
    Q_EMIT Sent(shortName + QLatin1Char(' ') + signal + Show(arguments));
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

void BusService::Narrate(const QString& method, const QVariantList& arguments)
{
    Q_EMIT Asked(shortName + QLatin1Char(' ') + method + Show(arguments));
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

Answer BusService::Carry(const QDBusMessage& request, const std::optional<Fault>& fault)
{
    const bool refused = fault && fault->kind == Fault::Status;
    // A method that delivers values changes nothing: its values stand beside a status of failure, too.
    const bool delivers = interface.Methods().value(request.member()).out.size() > 1;

    Answer answer;
    if (!refused || delivers)
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
    const bool meant = message.interface() == interface.Name() || (message.interface().isEmpty() && known);
    if (message.type() != QDBusMessage::MethodCallMessage || !meant)
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
    Narrate(method, message.arguments());

    const std::optional<Fault> fault = TakeFault(method);
    if (fault && fault->kind == Fault::Silent)
        return true;
    if (fault && fault->kind == Fault::Error) {
        Reply(message.createErrorReply(fault->error, QStringLiteral("Injected fault")));
        return true;
    }

    const Answer answer = Carry(message, fault);
    QVariantList values{answer.status};
    for (int i = 1; i < types.out.size(); ++i)
        values.append(ToBusType(answer.values.value(i - 1), types.out.at(i)));
    const QDBusMessage reply = message.createReply(values);

    if (fault && fault->kind == Fault::Delay) {
        QTimer::singleShot(fault->number, this, [this, reply, asked = visit] {
            if (asked == visit)
                Reply(reply);
        });
    } else {
        Reply(reply);
    }
    return true;
}
