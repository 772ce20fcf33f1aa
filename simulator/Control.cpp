#include "Control.h"

#include "ControlNames.h"
#include "SimulatorAdaptor.h"

Control::Control(Device& device, Commands& commands) : device(device), commands(commands)
{
    new SimulatorAdaptor(this); // owned by its parent, whose signals it relays
    connect(&device, &Device::Event, this, &Control::Event);
}

QString Control::Join()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return QStringLiteral("no session bus");
    if (!bus.registerObject(ControlNames::Object, this) || !bus.registerService(ControlNames::Service))
        return QStringLiteral("the name %1 is taken").arg(ControlNames::Service);
    return {};
}

int Control::Command(const QString& line, QString& answer)
{
    const Commands::Result result = commands.Run(line);
    answer = result.text;
    return result.done ? 0 : 1;
}
