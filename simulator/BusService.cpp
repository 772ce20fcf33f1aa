#include "BusService.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QTimer>

BusService::BusService(const QString& shortName, const char* busName, const char* objectPath, const char* interface)
    : shortName(shortName),
      busName(busName),
      objectPath(objectPath),
      interface(interface)
{
}

BusService::~BusService()
{
    Leave();
}

void BusService::Handle(const QString& method, Handler handler)
{
    Q_ASSERT(interface.Methods().contains(method));
    handlers.insert(method, std::move(handler));
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
    if (bus.registerVirtualObject(objectPath, this) && bus.registerService(busName))
        return {};
    Leave();
    return QStringLiteral("the name %1 is taken").arg(busName);
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

void BusService::Reply(const QDBusMessage& reply)
{
    if (onBus)
        QDBusConnection(ConnectionName()).send(reply);
}

bool BusService::handleMessage(const QDBusMessage& message, const QDBusConnection&)
{
    const QString method = message.member();
    if (message.type() != QDBusMessage::MethodCallMessage || !interface.Methods().contains(method) ||
        (!message.interface().isEmpty() && message.interface() != interface.Name()))
        return false;

    const Interface::Method types = interface.Methods().value(method);
    if (message.signature() != types.in.join(QString())) {
        Reply(message.createErrorReply(QDBusError::InvalidArgs,
                                       QStringLiteral("%1 takes \"%2\"").arg(method, types.in.join(QString()))));
        return true;
    }
    Q_EMIT Asked(shortName + QLatin1Char(' ') + method + Show(message.arguments()));

    const std::optional<Fault> fault = TakeFault(method);
    if (fault && fault->kind == Fault::Silent)
        return true;
    if (fault && fault->kind == Fault::Error) {
        Reply(message.createErrorReply(fault->error, QStringLiteral("Injected fault")));
        return true;
    }

    Answer answer;
    if (fault && fault->kind == Fault::Status)
        answer.status = fault->number;
    else
        answer = handlers.value(method)(message.arguments());

    QVariantList values{answer.status};
    for (int i = 1; i < types.out.size(); ++i)
        values.append(ToBusType(answer.values.value(i - 1, 0), types.out.at(i)));
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
