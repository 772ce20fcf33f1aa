#include "ControlClient.h"

#include "ControlNames.h"
#include "SimulatorProxy.h"

#include <QCoreApplication>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>

#include <cstdio>

namespace
{

constexpr int ExitRefused = 1;
constexpr int ExitNotOnBus = 3;

int ReportNoSimulator(const QDBusError& error)
{
    std::fprintf(stderr, "kova-simulator: no simulator answers on this session bus: %s\n", qPrintable(error.message()));
    return ExitNotOnBus;
}

void PrintLine(const QString& text)
{
    std::printf("%s\n", qPrintable(text));
    std::fflush(stdout);
}

/// Prints the history and then each new request.
int FollowLog(SimulatorProxy& simulator)
{
    bool live = false; // events before the answer are part of the history
    QObject::connect(&simulator, &SimulatorProxy::Event, &simulator, [&live](const QString& text) {
        if (live && text.startsWith(QLatin1String("-> ")))
            PrintLine(text.mid(3));
    });
    const QDBusServiceWatcher end(ControlNames::Service, simulator.connection(),
                                  QDBusServiceWatcher::WatchForUnregistration);
    QObject::connect(&end, &QDBusServiceWatcher::serviceUnregistered, &simulator, [] { QCoreApplication::exit(0); });

    const QDBusPendingCallWatcher answer(simulator.History());
    QObject::connect(&answer, &QDBusPendingCallWatcher::finished, &simulator, [&live](QDBusPendingCallWatcher* call) {
        const QDBusPendingReply<QStringList> history = *call;
        if (history.isError()) {
            QCoreApplication::exit(ReportNoSimulator(history.error()));
            return;
        }
        for (const QString& request : history.value())
            PrintLine(request);
        live = true;
    });
    return QCoreApplication::exec();
}

}

int SendToRunning(const QString& command)
{
    SimulatorProxy simulator(ControlNames::Service, ControlNames::Object, QDBusConnection::sessionBus());
    if (command.trimmed() == QLatin1String("log"))
        return FollowLog(simulator);

    QString answer;
    const QDBusReply<int> status = simulator.Command(command, answer);
    if (!status.isValid())
        return ReportNoSimulator(status.error());
    if (!answer.isEmpty())
        std::fprintf(status.value() == 0 ? stdout : stderr, "%s\n", qPrintable(answer));
    return status.value() == 0 ? 0 : ExitRefused;
}
