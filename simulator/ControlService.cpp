#include "ControlService.h"

#include "BusLoss.h"
#include "ControlNames.h"
#include "SimulatorAdaptor.h"

ControlService::ControlService(Device& device, Commands& commands) : device(device), commands(commands)
{
    new SimulatorAdaptor(this); // owned by its parent, whose signals it relays
    connect(&device, &Device::Event, this, &ControlService::Event);
}

QString ControlService::Join()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return QStringLiteral("no session bus");
    if (!bus.registerObject(ControlNames::Object, this) || !bus.registerService(ControlNames::Service))
        return QStringLiteral("the name %1 is taken: another simulator is on this bus").arg(ControlNames::Service);
    ConnectBusLoss(bus, this, SLOT(OnBusLost()));
    return {};
}

/// The device is useless without its bus.
void ControlService::OnBusLost()
{
    Q_EMIT commands.Quit();
}

int ControlService::Command(const QString& line, QString& answer)
{
    const Commands::Result result = commands.Run(line);
    answer = result.text;
    return result.done ? 0 : 1;
}
