#include "Remote.h"

#include "ControlNames.h"
#include "SimulatorProxy.h"

#include <QCoreApplication>

#include <cstdio>

namespace
{

constexpr int ExitRefused = 1;
constexpr int ExitNotOnBus = 3;

}

int SendToRunning(const QString& command)
{
    SimulatorProxy simulator(ControlNames::Service, ControlNames::Object, QDBusConnection::sessionBus());
    QString answer;
    const QDBusReply<int> status = simulator.Command(command, answer);
    if (!status.isValid()) {
        std::fprintf(stderr, "kova-simulator: no simulator answers: %s\n", qPrintable(status.error().message()));
        return ExitNotOnBus;
    }
    if (!answer.isEmpty())
        std::fprintf(status.value() == 0 ? stdout : stderr, "%s\n", qPrintable(answer));
    if (status.value() != 0)
        return ExitRefused;

    if (command.trimmed() == QLatin1String("log")) {
        QObject::connect(&simulator, &SimulatorProxy::Event, qApp, [](const QString& text) {
            if (text.startsWith(QLatin1String("-> "))) {
                std::printf("%s\n", qPrintable(text.mid(3)));
                std::fflush(stdout);
            }
        });
        std::fflush(stdout);
        return QCoreApplication::exec();
    }
    return 0;
}
