#include "Console.h"
#include "Control.h"
#include "Remote.h"
#include "Scenario.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTime>

#include <csignal>
#include <cstdio>
#include <memory>

namespace
{

constexpr int ExitFailed = 1;
constexpr int ExitUsage = 2;
constexpr int ExitNotOnBus = 3;

constexpr char Examples[] = R"(
A simulated phone device: GSM daemon, sound manager and audio control services, behaving like a modem, a SIM card, a
network and an audio path.

  kova-simulator                          be the device; commands on standard input, "help" lists them
  kova-simulator --register 500           with a network that is quick to register
  kova-simulator send "ring +4912345"     steer the one that runs: a call comes in
  kova-simulator send log                 follow what the phone service asks of it
  kova-simulator play no-sim.scenario     be the device, play a scenario, and fail if it does not come true)";

struct TimeOption {
    const char* name;
    const char* what;
    int DeviceTimes::*time;
};

constexpr TimeOption timeOptions[] = {
    {"power-up", "from power-on to ModemPowered", &DeviceTimes::powerUp},
    {"register", "from ModemPowered to ModemRegistered", &DeviceTimes::registration},
    {"power-down", "from power-off to ModemOff", &DeviceTimes::powerDown},
    {"signal-interval", "between signal reports", &DeviceTimes::signalInterval},
    {"answer", "until the far end answers or rejects a call", &DeviceTimes::answer},
};

int Complain(int status, const QString& problem)
{
    std::fprintf(stderr, "kova-simulator: %s\n", qPrintable(problem));
    return status;
}

void PrintEvent(const QString& text)
{
    std::printf("%s %s\n", qPrintable(QTime::currentTime().toString(QStringLiteral("HH:mm:ss.zzz"))), qPrintable(text));
    std::fflush(stdout);
}

}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kova-simulator"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KOVA_VERSION));

    QCommandLineParser options;
    options.setApplicationDescription(Examples);
    options.addHelpOption();
    options.addVersionOption();
    DeviceTimes times;
    for (const TimeOption& option : timeOptions)
        options.addOption({option.name, QStringLiteral("Time %1, in milliseconds.").arg(option.what),
                           QStringLiteral("ms"), QString::number(times.*option.time)});
    const QCommandLineOption quiet(QStringLiteral("quiet"), QStringLiteral("Do not print what happens."));
    options.addOption(quiet);
    options.addPositionalArgument(QStringLiteral("mode"), QStringLiteral("send COMMAND, play FILE, or nothing."),
                                  QStringLiteral("[send COMMAND | play FILE]"));
    options.process(application);

    const QStringList mode = options.positionalArguments();
    const bool sends = mode.value(0) == QLatin1String("send");
    const bool plays = mode.value(0) == QLatin1String("play");
    if (!mode.isEmpty() && !(sends && mode.size() > 1) && !(plays && mode.size() == 2))
        return Complain(ExitUsage, QStringLiteral("either \"send COMMAND\", \"play FILE\" or nothing; see --help"));
    if (sends)
        return SendToRunning(QStringList(mode.mid(1)).join(QLatin1Char(' ')));

    for (const TimeOption& option : timeOptions) {
        bool ok = false;
        times.*option.time = options.value(option.name).toInt(&ok);
        if (!ok || times.*option.time < 0)
            return Complain(ExitUsage, QStringLiteral("--%1 takes milliseconds").arg(option.name));
    }

    Device device(times);
    Commands commands(device);
    Control control(device, commands);
    Scenario scenario(device, commands);
    if (plays) {
        const QString problem = scenario.Load(mode.at(1));
        if (!problem.isEmpty())
            return Complain(ExitUsage, problem);
    }
    if (!options.isSet(quiet))
        QObject::connect(&device, &Device::Event, PrintEvent);
    QObject::connect(&commands, &Commands::Quit, &application, &QCoreApplication::quit, Qt::QueuedConnection);
    for (const int signal : {SIGINT, SIGTERM})
        std::signal(signal, [](int) { QCoreApplication::exit(0); });

    // The control's name comes last: who sees it finds the whole device.
    for (const QString& problem : {device.Join(), control.Join()}) {
        if (!problem.isEmpty())
            return Complain(ExitNotOnBus, problem);
    }

    std::unique_ptr<Console> console;
    if (plays) {
        QObject::connect(&scenario, &Scenario::Ended, &application, [](const QString& problem) {
            QCoreApplication::exit(problem.isEmpty() ? 0 : Complain(ExitFailed, problem));
        });
        QMetaObject::invokeMethod(&scenario, &Scenario::Start, Qt::QueuedConnection);
    } else {
        std::puts("ready");
        std::fflush(stdout);
        console = std::make_unique<Console>(commands);
    }
    return QCoreApplication::exec();
}
