#include "Daemon.h"
#include "GsmAdaptor.h"
#include "GsmDaemon.h"
#include "GsmdLog.h"
#include "ModemManagerStack.h"
#include "ModemStackFinder.h"
#include "OfonoStack.h"
#include "Process.h"
#include "SignalInput.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusObjectPath>

Q_DECL_EXPORT LogInterface* _logInterface = nullptr;

namespace
{

constexpr char About[] = R"(
The phone service's GSM daemon, for boards whose modem is run by a stock modem stack on the system bus.)";

/// A supported modem stack.
struct KnownStack {
    const char* name;
    const char* service;
    std::unique_ptr<ModemStack> (*make)(const QDBusConnection& bus, const QString& owner, const QString& modem);
};

template <typename S>
std::unique_ptr<ModemStack> Make(const QDBusConnection& bus, const QString& owner, const QString& modem)
{
    return std::make_unique<S>(bus, owner, modem);
}

constexpr KnownStack knownStacks[] = {
    {"ofono", OfonoStack::Service, Make<OfonoStack>},
    {"modemmanager", ModemManagerStack::Service, Make<ModemManagerStack>},
};

constexpr char AnyStack[] = "auto";

int Run(const QString& stackName, const QString& modem, int signalInput)
{
    QDBusConnection session = QDBusConnection::sessionBus();
    QDBusConnection system = QDBusConnection::systemBus();
    if (!Daemon::RequireBus(session, Names::GsmObject) || !Daemon::RequireBus(system, Names::GsmObject))
        return Daemon::ExitStatusFailed;

    GsmDaemon daemon;
    new GsmAdaptor(&daemon);
    if (!session.registerObject(Names::GsmObject, &daemon) || !session.registerService(Names::GsmService)) {
        GSMD_LOG(LogLevelError, "The name %s is taken: another GSM daemon runs", Names::GsmService);
        return Daemon::ExitStatusFailed;
    }

    QStringList services;
    for (const KnownStack& known : knownStacks) {
        if (stackName == QLatin1String(AnyStack) || stackName == QLatin1String(known.name))
            services.append(QString::fromLatin1(known.service));
    }
    ModemStackFinder finder(system, services);
    QObject::connect(&finder, &ModemStackFinder::Found, &daemon, [&](const QString& service, const QString& owner) {
        for (const KnownStack& known : knownStacks) {
            if (service == QLatin1String(known.service))
                daemon.Attach(known.make(system, owner, modem));
        }
    });
    QObject::connect(&finder, &ModemStackFinder::Lost, &daemon, &GsmDaemon::Detach);

    Daemon::WhenSignalled(signalInput, &daemon, [&daemon] { daemon.Stop(); });
    QObject::connect(&daemon, &GsmDaemon::Stopped, QCoreApplication::instance(), &QCoreApplication::quit,
                     Qt::QueuedConnection);

    GSMD_LOG(LogLevelProgress, "GSM daemon running");
    const int status = QCoreApplication::exec();
    GSMD_LOG(LogLevelProgress, "GSM daemon ends");
    return status;
}

}

int main(int argc, char** argv)
{
    Process::Prepare(Names::GsmObject);
    const int signalInput = HoldSignals({SIGINT, SIGTERM});
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kova-gsmd"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KOVA_VERSION));
    _logInterface =
        new LogInterface(QString::fromLatin1(Names::GsmLogObject)); // never deleted: Qt may log to the very end

    QStringList names{QString::fromLatin1(AnyStack)};
    for (const KnownStack& known : knownStacks)
        names.append(QString::fromLatin1(known.name));

    QCommandLineParser options;
    options.setApplicationDescription(QString::fromLatin1(About));
    const QCommandLineOption stackOption(
        QStringLiteral("stack"),
        QStringLiteral("The modem stack: %1 (auto, if not given: the first that is there).").arg(names.join(", ")),
        QStringLiteral("name"), names.first());
    const QCommandLineOption modemOption(
        QStringLiteral("modem"),
        QStringLiteral("The modem's object path (if not given: the first modem that can carry calls)."),
        QStringLiteral("path"));
    options.addOptions({stackOption, modemOption});
    Daemon::ParseOptions(options);

    const QString stack = options.value(stackOption);
    if (!options.positionalArguments().isEmpty())
        Daemon::RefuseUsage(QStringLiteral("takes options only; see --help"));
    if (!names.contains(stack))
        Daemon::RefuseUsage(QStringLiteral("\"%1\" is not one of: %2").arg(stack, names.join(QStringLiteral(", "))));
    const QString modem = options.value(modemOption);
    if (options.isSet(modemOption) && QDBusObjectPath(modem).path().isEmpty())
        Daemon::RefuseUsage(QStringLiteral("\"%1\" is not an object path").arg(modem));
    return Run(stack, modem, signalInput);
}
