#include "Console.h"
#include "ControlClient.h"
#include "ControlService.h"
#include "DaemonCheck.h"
#include "LineEditor.h"
#include "Scenario.h"
#include "SignalInput.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTime>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdio>
#include <iterator>
#include <memory>
#include <unistd.h>

namespace
{

constexpr int ExitFailed = 1;
constexpr int ExitUsage = 2;
constexpr int ExitNotOnBus = 3;

constexpr char Examples[] = R"(
A simulated phone device: GSM daemon, sound manager and audio control services with a modem, a SIM card, a network and
an audio path behind them.

  kova-simulator                          run the device; type "help" for its commands
  kova-simulator --register 500           run it with a network that registers quickly
  kova-simulator send ring +493023125001  let a call come in at the running device
  kova-simulator send fault Call silent   let the GSM daemon not answer requests to dial
  kova-simulator send log                 follow the requests of the phone service
  kova-simulator --at-tcp 4321            offer the modem as an AT port instead, for oFono or ModemManager
  kova-simulator check-gsmd call +4930    test the GSM daemon on this bus against the service's requirements
  kova-simulator play no-sim.scenario     run the device, play a scenario, and fail if an expectation is not met)";

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

int PrintError(int status, const QString& problem)
{
    std::fprintf(stderr, "kova-simulator: %s\n", qPrintable(problem));
    return status;
}

QString EventLine(const QString& text)
{
    return QTime::currentTime().toString(QStringLiteral("HH:mm:ss.zzz ")) + text;
}

void PrintEvent(const QString& text)
{
    std::puts(qPrintable(EventLine(text)));
    std::fflush(stdout);
}

bool ParseTimes(const QCommandLineParser& options, DeviceTimes& times)
{
    return std::all_of(std::begin(timeOptions), std::end(timeOptions), [&](const TimeOption& option) {
        bool ok = false;
        times.*option.time = options.value(option.name).toInt(&ok);
        return ok && times.*option.time >= 0;
    });
}

/// Joins words that a shell has split into a line that the simulator splits in the same way.
QString JoinWords(QStringList words)
{
    if (words.size() > 1) {
        for (QString& word : words) {
            word.replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('"'), QLatin1String("\\\""));
            word = QLatin1Char('"') + word + QLatin1Char('"');
        }
    }
    return words.join(QLatin1Char(' '));
}

/// Parses "call NUMBER" and "sms NUMBER", each at most once.
std::optional<DaemonCheck::Numbers> ParseNumbers(const QStringList& words)
{
    DaemonCheck::Numbers numbers;
    if (words.size() % 2 != 0)
        return std::nullopt;
    for (int i = 0; i < words.size(); i += 2) {
        QString* number = words.at(i) == QLatin1String("call")  ? &numbers.call
                          : words.at(i) == QLatin1String("sms") ? &numbers.sms
                                                                : nullptr;
        if (!number || !number->isEmpty() || words.at(i + 1).isEmpty())
            return std::nullopt;
        *number = words.at(i + 1);
    }
    return numbers;
}

/// Runs the device until it is told to quit, or the scenario has ended.
/// @param scenarioFile empty to read commands from standard input instead.
int RunDevice(const DeviceTimes& times, const DeviceOptions& options, const QString& scenarioFile, bool quiet,
              int signalInput)
{
    const bool isPlaying = !scenarioFile.isEmpty();
    Device device(times, options);
    Commands commands(device);
    ControlService control(device, commands);
    std::unique_ptr<Scenario> scenario;
    if (isPlaying) {
        scenario = std::make_unique<Scenario>(device, commands);
        const QString problem = scenario->Load(scenarioFile);
        if (!problem.isEmpty())
            return PrintError(ExitUsage, problem);
    }
    const bool interactive = !isPlaying && isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
    if (!quiet && !interactive)
        QObject::connect(&device, &Device::Event, PrintEvent);

    const auto stop = [isPlaying] {
        QCoreApplication::exit(isPlaying ? PrintError(ExitFailed, "stopped before the end of the scenario") : 0);
    };
    const QSocketNotifier signalNotifier(signalInput, QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, &control, stop);
    QObject::connect(&commands, &Commands::Quit, &control, stop, Qt::QueuedConnection);

    // Claim the name of the control last, to show that the whole device is there.
    for (const QString& problem : {device.Join(), control.Join()}) {
        if (!problem.isEmpty())
            return PrintError(ExitNotOnBus, problem);
    }

    std::unique_ptr<QObject> console;
    if (isPlaying) {
        QObject::connect(scenario.get(), &Scenario::Ended, &control, [](const QString& problem) {
            QCoreApplication::exit(problem.isEmpty() ? 0 : PrintError(ExitFailed, problem));
        });
        QMetaObject::invokeMethod(scenario.get(), &Scenario::Start, Qt::QueuedConnection);
    } else {
        std::puts("ready");
        std::fflush(stdout);
        if (interactive) {
            auto editor = std::make_unique<LineEditor>(commands);
            if (!quiet)
                QObject::connect(&device, &Device::Event, editor.get(),
                                 [editor = editor.get()](const QString& text) { editor->Print(EventLine(text)); });
            console = std::move(editor);
        } else {
            console = std::make_unique<Console>(commands);
        }
    }
    return QCoreApplication::exec();
}

}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kova-simulator"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KOVA_VERSION));

    QCommandLineParser options;
    options.setApplicationDescription(Examples);
    options.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this help."));
    options.addOption(help);
    const QCommandLineOption version = options.addVersionOption();
    DeviceTimes times;
    for (const TimeOption& option : timeOptions)
        options.addOption({option.name,
                           QStringLiteral("Time %1, in milliseconds (%2).").arg(option.what).arg(times.*option.time),
                           QStringLiteral("ms"), QString::number(times.*option.time)});
    const QCommandLineOption atTcp(
        QStringLiteral("at-tcp"),
        QStringLiteral("Offer the modem as an AT port on this local TCP port instead of the GSM daemon."),
        QStringLiteral("port"));
    const QCommandLineOption atAbstract(QStringLiteral("at-abstract"),
                                        QStringLiteral("The same on a socket of this name in the abstract namespace."),
                                        QStringLiteral("name"));
    const QCommandLineOption atStaysOn(QStringLiteral("at-stays-on"),
                                       QStringLiteral("Keep the modem's power and calls when the AT port is closed."));
    const QCommandLineOption noAudio(QStringLiteral("no-audio"),
                                     QStringLiteral("Do not offer the three audio services."));
    options.addOptions({atTcp, atAbstract, atStaysOn, noAudio});
    const QCommandLineOption quiet(QStringLiteral("quiet"), QStringLiteral("Do not print events."));
    options.addOption(quiet);
    options.addPositionalArgument(QStringLiteral("mode"),
                                  QStringLiteral("play FILE, send COMMAND, check-gsmd, or none to run the device."),
                                  QStringLiteral("[play FILE | send COMMAND | check-gsmd [call NUMBER] [sms NUMBER]]"));
    if (!options.parse(QCoreApplication::arguments()))
        return PrintError(ExitUsage, options.errorText() + QStringLiteral(" See --help."));
    if (options.isSet(help))
        options.showHelp();
    if (options.isSet(version))
        options.showVersion();

    const QStringList mode = options.positionalArguments();
    if (mode.value(0) == QLatin1String("send") && mode.size() > 1)
        return SendToRunning(JoinWords(mode.mid(1)));
    if (mode.value(0) == QLatin1String("check-gsmd")) {
        const std::optional<DaemonCheck::Numbers> numbers = ParseNumbers(mode.mid(1));
        return numbers ? DaemonCheck().Run(*numbers)
                       : PrintError(ExitUsage, QStringLiteral("usage: check-gsmd [call NUMBER] [sms NUMBER]"));
    }
    if (!mode.isEmpty() && (mode.at(0) != QLatin1String("play") || mode.size() != 2))
        return PrintError(
            ExitUsage,
            QStringLiteral("options, then \"play FILE\", \"send COMMAND\", \"check-gsmd\" or nothing; see --help"));
    if (!ParseTimes(options, times))
        return PrintError(ExitUsage, QStringLiteral("times are whole numbers of milliseconds; see --help"));
    DeviceOptions deviceOptions;
    deviceOptions.atTcpPort = options.value(atTcp).toInt();
    deviceOptions.atAbstractName = options.value(atAbstract);
    deviceOptions.atStaysOn = options.isSet(atStaysOn);
    deviceOptions.audio = !options.isSet(noAudio);
    if (options.isSet(atTcp) && (deviceOptions.atTcpPort < 1 || deviceOptions.atTcpPort > USHRT_MAX))
        return PrintError(ExitUsage, QStringLiteral("a TCP port is a number from 1 to 65535"));
    if (options.isSet(atAbstract) && deviceOptions.atAbstractName.isEmpty())
        return PrintError(ExitUsage, QStringLiteral("the name of a socket is not empty"));
    return RunDevice(times, deviceOptions, mode.value(1), options.isSet(quiet), HoldSignals({SIGINT, SIGTERM}));
}
