// kova-suspend: holds the phone off while the device sleeps.

#include "BusGuard.h"
#include "Log.h"
#include "Process.h"
#include "SignalInput.h"
#include "SleepGuard.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <cstdio>

Q_DECL_EXPORT LogInterface* _logInterface = nullptr;

namespace
{

enum ExitStatus : int { ExitStatusDone = 0, ExitStatusFailed = 1, ExitStatusUsage = 2 };

int Guard(int signalInput)
{
    const QDBusConnection systemBus = QDBusConnection::systemBus();
    const QDBusConnection sessionBus = QDBusConnection::sessionBus();
    for (const QDBusConnection& bus : {systemBus, sessionBus}) {
        if (!bus.isConnected()) {
            LOG(LogLevelError, "DBUS: Can't connect %s bus", bus.name() == systemBus.name() ? "system" : "session");
            return ExitStatusFailed;
        }
    }
    const BusGuard systemGuard(systemBus);
    const BusGuard sessionGuard(sessionBus);
    for (const BusGuard* guard : {&systemGuard, &sessionGuard})
        QObject::connect(guard, &BusGuard::Lost, guard, [] { QCoreApplication::exit(ExitStatusFailed); });

    const QSocketNotifier signalled(signalInput, QSocketNotifier::Read);
    QObject::connect(&signalled, &QSocketNotifier::activated, QCoreApplication::instance(), &QCoreApplication::quit);

    SleepGuard guard(systemBus, sessionBus);
    guard.Start();
    LOG(LogLevelProgress, "Following the device's sleep");
    return QCoreApplication::exec();
}

}

int main(int argc, char** argv)
{
    Process::Prepare(Names::PhoneObject);
    const int signalInput = HoldSignals({SIGINT, SIGTERM});
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kova-suspend"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KOVA_VERSION));

    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral("Holds the phone off while the device sleeps. Takes no options."));
    options.addHelpOption();
    options.addVersionOption();
    options.process(application);
    if (!options.positionalArguments().isEmpty()) {
        std::fputs("kova-suspend: takes no arguments; see --help\n", stderr);
        return ExitStatusUsage;
    }

    _logInterface = new LogInterface(QLatin1String(Names::LogObject)); // never deleted: Qt may log to the very end
    return Guard(signalInput);
}
