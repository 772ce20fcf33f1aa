#include "Daemon.h"

#include "BusGuard.h"
#include "Log.h"
#include "SignalInput.h"

#include <QCoreApplication>
#include <QDBusError>
#include <QSocketNotifier>

#include <cstdio>
#include <cstdlib>

void Daemon::ParseOptions(QCommandLineParser& options)
{
    const QCommandLineOption help = options.addHelpOption();
    const QCommandLineOption version = options.addVersionOption();
    if (!options.parse(QCoreApplication::arguments()))
        RefuseUsage(options.errorText() + QStringLiteral(" See --help."));
    if (options.isSet(help))
        options.showHelp();
    if (options.isSet(version))
        options.showVersion();
}

void Daemon::RefuseUsage(const QString& problem)
{
    std::fprintf(stderr, "%s: %s\n", qPrintable(QCoreApplication::applicationName()), qPrintable(problem));
    std::exit(ExitStatusUsage);
}

bool Daemon::RequireBus(const QDBusConnection& bus, const char* logOrigin)
{
    if (!bus.isConnected()) {
        const bool isSession = bus.name() == QDBusConnection::sessionBus().name();
        LOG_FROM(logOrigin, LogLevelError, "DBUS: Can't connect to the %s bus: %s", isSession ? "session" : "system",
                 qPrintable(bus.lastError().message()));
        return false;
    }
    auto* guard = new BusGuard(bus, logOrigin);
    guard->setParent(QCoreApplication::instance());
    QObject::connect(guard, &BusGuard::Lost, guard, [] { QCoreApplication::exit(ExitStatusFailed); });
    return true;
}

void Daemon::WhenSignalled(int signalInput, QObject* context, const std::function<void()>& handler)
{
    const auto* arrived = new QSocketNotifier(signalInput, QSocketNotifier::Read, context);
    QObject::connect(arrived, &QSocketNotifier::activated, context, [signalInput, handler] {
        if (TakeSignals(signalInput))
            handler();
    });
}
