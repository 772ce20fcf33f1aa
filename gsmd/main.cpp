#include "BusGuard.h"
#include "GsmAdaptor.h"
#include "GsmDaemon.h"
#include "LogGsmd.h"
#include "ModemManagerStack.h"
#include "OfonoStack.h"
#include "Process.h"
#include "SignalInput.h"
#include "StackFinder.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QSocketNotifier>

#include <cstdio>

Q_DECL_EXPORT LogInterface* _logInterface = nullptr;

namespace
{

constexpr char LogObject[] = "/com/quillmark/kova/gsmmanager/logobj";

constexpr int ExitFailed = 1;
constexpr int ExitUsage = 2;

constexpr char About[] = R"(
The phone service's GSM daemon, for boards whose modem is run by a stock modem stack on the system bus.)";

/// A supported modem stack.
struct KnownStack {
    const char* name;
    const char* service;
    std::unique_ptr<Stack> (*make)(const QDBusConnection& bus, const QString& owner, const QString& modem);
};

template <typename S>
std::unique_ptr<Stack> Make(const QDBusConnection& bus, const QString& owner, const QString& modem)
{
    return std::make_unique<S>(bus, owner, modem);
}

constexpr KnownStack knownStacks[] = {
    {"ofono", OfonoStack::Service, Make<OfonoStack>},
    {"modemmanager", ModemManagerStack::Service, Make<ModemManagerStack>},
};

constexpr char AnyStack[] = "auto";

int Complain(int status, const QString& problem)
{
    std::fprintf(stderr, "kova-gsmd: %s\n", qPrintable(problem));
    return status;
}

int Run(const QString& stackName, const QString& modem, int signalInput)
{
    QDBusConnection session = QDBusConnection::sessionBus();
    QDBusConnection system = QDBusConnection::systemBus();
    for (const QDBusConnection& bus : {session, system}) {
        if (!bus.isConnected()) {
            GSMD_LOG(LogLevelError, "No %s bus: %s", bus.name() == session.name() ? "session" : "system",
                     qPrintable(bus.lastError().message()));
            return ExitFailed;
        }
    }
    // The daemon is useless without one of its buses. Exit, so that systemd starts it again.
    const BusGuard sessionGuard(session, Names::GsmObject);
    const BusGuard systemGuard(system, Names::GsmObject);
    for (const BusGuard* guard : {&sessionGuard, &systemGuard})
        QObject::connect(guard, &BusGuard::Lost, guard, [] { QCoreApplication::exit(ExitFailed); });

    GsmDaemon daemon;
    new GsmAdaptor(&daemon);
    if (!session.registerObject(Names::GsmObject, &daemon) || !session.registerService(Names::GsmService)) {
        GSMD_LOG(LogLevelError, "The name %s is taken: another GSM daemon runs", Names::GsmService);
        return ExitFailed;
    }

    QStringList services;
    for (const KnownStack& known : knownStacks) {
        if (stackName == QLatin1String(AnyStack) || stackName == QLatin1String(known.name))
            services.append(QString::fromLatin1(known.service));
    }
    StackFinder finder(system, services);
    QObject::connect(&finder, &StackFinder::Found, &daemon, [&](const QString& service, const QString& owner) {
        for (const KnownStack& known : knownStacks) {
            if (service == QLatin1String(known.service))
                daemon.Attach(known.make(system, owner, modem));
        }
    });
    QObject::connect(&finder, &StackFinder::Lost, &daemon, &GsmDaemon::Detach);

    const QSocketNotifier signalled(signalInput, QSocketNotifier::Read);
    QObject::connect(&signalled, &QSocketNotifier::activated, &daemon, [&daemon, signalInput] {
        TakeSignals(signalInput);
        daemon.Stop();
    });
    QObject::connect(
        &daemon, &GsmDaemon::Stopped, &daemon, [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);

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
    _logInterface = new LogInterface(QString::fromLatin1(LogObject)); // never deleted: Qt may log to the very end

    QStringList names{QString::fromLatin1(AnyStack)};
    for (const KnownStack& known : knownStacks)
        names.append(QString::fromLatin1(known.name));

    QCommandLineParser options;
    options.setApplicationDescription(QString::fromLatin1(About));
    options.addHelpOption();
    options.addVersionOption();
    const QCommandLineOption stackOption(
        QStringLiteral("stack"),
        QStringLiteral("The modem stack: %1 (auto, if not given: the first that is there).").arg(names.join(", ")),
        QStringLiteral("name"), names.first());
    const QCommandLineOption modemOption(
        QStringLiteral("modem"),
        QStringLiteral("The modem's object path (if not given: the first modem that can carry calls)."),
        QStringLiteral("path"));
    options.addOptions({stackOption, modemOption});
    if (!options.parse(QCoreApplication::arguments()))
        return Complain(ExitUsage, options.errorText() + QStringLiteral(" See --help."));
    if (options.isSet(QStringLiteral("help")))
        options.showHelp();
    if (options.isSet(QStringLiteral("version")))
        options.showVersion();

    const QString stack = options.value(stackOption);
    if (!options.positionalArguments().isEmpty())
        return Complain(ExitUsage, QStringLiteral("takes options only; see --help"));
    if (!names.contains(stack))
        return Complain(ExitUsage,
                        QStringLiteral("\"%1\" is none of: %2").arg(stack, names.join(QStringLiteral(", "))));
    const QString modem = options.value(modemOption);
    if (options.isSet(modemOption) && QDBusObjectPath(modem).path().isEmpty())
        return Complain(ExitUsage, QStringLiteral("\"%1\" is no object path").arg(modem));
    return Run(stack, modem, signalInput);
}
