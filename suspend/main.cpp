// kova-suspend: holds the phone off while the device sleeps.

#include "Daemon.h"
#include "Log.h"
#include "Process.h"
#include "SignalInput.h"
#include "SleepGuard.h"

#include <QCommandLineParser>
#include <QCoreApplication>

Q_DECL_EXPORT LogInterface* _logInterface = nullptr;

namespace
{

int Guard(int signalInput)
{
    const QDBusConnection systemBus = QDBusConnection::systemBus();
    const QDBusConnection sessionBus = QDBusConnection::sessionBus();
    if (!Daemon::RequireBus(systemBus, Names::PhoneObject) || !Daemon::RequireBus(sessionBus, Names::PhoneObject))
        return Daemon::ExitStatusFailed;
    Daemon::WhenSignalled(signalInput, QCoreApplication::instance(), &QCoreApplication::quit);

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
    Daemon::ParseOptions(options);
    if (!options.positionalArguments().isEmpty())
        Daemon::RefuseUsage(QStringLiteral("takes no arguments; see --help"));

    _logInterface = new LogInterface(QLatin1String(Names::LogObject)); // never deleted: Qt may log to the very end
    return Guard(signalInput);
}
