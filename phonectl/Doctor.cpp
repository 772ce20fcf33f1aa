#include "Doctor.h"

#include "ContactBook.h"
#include "InterfaceDescription.h"
#include "Meanings.h"
#include "ModemStacks.h"
#include "Names.h"
#include "PhoneCodes.h"
#include "SettingsFile.h"
#include "TimeLimits.h"

#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <iterator>
#include <net/if.h>
#include <optional>

namespace
{

constexpr int TitleWidth = 22;
constexpr int VerdictWidth = 9;
constexpr int AnswerLimitS = 20;
constexpr int IntrospectionTimeoutMs = 5000;
constexpr int VersionTimeoutMs = 5000;
/// Long enough for a power cycle to end.
constexpr int PowerUpMs = 10000;
/// The check itself takes time, too.
constexpr int SimCheckMs = TimeLimits::SimCheckDelayMs + TimeLimits::GsmShortMs + 2000;

enum Verdict { Holds, Fails, NotYet };

constexpr struct {
    const char* word;
    Colour colour;
} verdicts[] = {{"holds", Green}, {"FAILS", Red}, {"not yet", Yellow}};

/// The result of a step.
struct Finding {
    Verdict verdict;
    QString found;
    QString next = {}; ///< what to do about it
};

/// The board under examination, with the results that later steps need.
struct Board {
    PhoneClient& phone;
    ServiceEnvironment environment;
    SettingsFile settings;
    bool isServed;
    std::optional<PhoneState> state = {}; ///< the answer to GetStatus, when there is one

    /// Waits for an event that may be due, and updates the state. @return whether it was received.
    bool AwaitEvent(PhoneEvent::Kind kind, const QString& awaited, int limitMs)
    {
        std::optional<PhoneEvent> event;
        do {
            event = phone.Next(awaited, limitMs);
        } while (event && event->kind != kind);
        state = phone.State(PhoneClient::KeepEarlier);
        // Without a card the service prepares the next check at once and leaves this state.
        if (event && kind == PhoneEvent::SimPresent)
            state->simStatus = event->flag ? SimStatusPresent : SimStatusAbsent;
        return event.has_value();
    }

    bool IsWanted() const { return state->userEnabled || settings.gprsEnabled; }
};

/// The path of the program that owns a bus name, or an empty text.
QString ProgramOf(Board& board, const char* service)
{
    const QDBusReply<uint> pid = board.phone.Proxy().connection().interface()->servicePid(QLatin1String(service));
    return pid.isValid() ? QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(pid.value())) : QString();
}

/// Name and version of the Debian package that a program belongs to, or an empty text.
QString PackageVersion(const QString& program)
{
    QProcess query;
    query.start(QStringLiteral("dpkg-query"), {QStringLiteral("-S"), program});
    if (!query.waitForFinished(VersionTimeoutMs) || query.exitCode() != 0)
        return {};
    const QString package = QString::fromLocal8Bit(query.readAllStandardOutput()).section(QLatin1Char(':'), 0, 0);
    query.start(QStringLiteral("dpkg-query"),
                {QStringLiteral("-W"), QStringLiteral("-f"), QStringLiteral("${Package} ${Version}"), package});
    return query.waitForFinished(VersionTimeoutMs) ? QString::fromLocal8Bit(query.readAllStandardOutput()) : QString();
}

bool IsActivatable(Board& board, const char* service)
{
    const QDBusReply<QStringList> names =
        board.phone.Proxy().connection().interface()->call(QStringLiteral("ListActivatableNames"));
    return names.value().contains(QLatin1String(service));
}

// The steps

/// Compares a service with its interface description. @return nothing if it has all members.
std::optional<Finding> CheckInterface(Board& board, const char* service, const char* path, const char* interface)
{
    QDBusPendingReply<QString> introspection = board.phone.Proxy().connection().asyncCall(
        QDBusMessage::createMethodCall(QLatin1String(service), QLatin1String(path),
                                       QStringLiteral("org.freedesktop.DBus.Introspectable"),
                                       QStringLiteral("Introspect")),
        IntrospectionTimeoutMs);
    board.phone.Await(introspection, QStringLiteral("the answer to Introspect"));
    if (introspection.isError())
        return Finding{Fails, QStringLiteral("%1: %2").arg(QLatin1String(path), introspection.error().message()),
                       QStringLiteral("it must export %1 there").arg(QLatin1String(interface))};
    const auto offered = InterfaceDescription::Read(introspection.value(), QLatin1String(interface));
    if (!offered)
        return Finding{Fails,
                       QStringLiteral("%1 has no interface %2").arg(QLatin1String(path), QLatin1String(interface)),
                       QStringLiteral("see share/dbus-1/interfaces/%1.xml").arg(QLatin1String(interface))};

    const QStringList missing = InterfaceDescription::BuiltIn(QLatin1String(interface)).MissingIn(*offered);
    if (missing.isEmpty())
        return {};
    return Finding{Fails, QStringLiteral("differs from its description: ") + missing.join(QStringLiteral("; ")),
                   QStringLiteral("see share/dbus-1/interfaces/%1.xml").arg(QLatin1String(interface))};
}

Finding CheckService(Board& board)
{
    if (!board.isServed) {
        if (IsActivatable(board, Names::PhoneService))
            return {NotYet, QStringLiteral("does not run; the first request on the bus starts it"),
                    QStringLiteral("phonectl status")};
        return {Fails, QStringLiteral("does not run, and the bus does not know how to start it"),
                QStringLiteral("systemctl --user start phonemanager, or run phonemanager in this session")};
    }
    try {
        board.phone.LimitTo(AnswerLimitS);
        board.state = board.phone.State();
    } catch (const Failure& failure) {
        if (failure.exitStatus == ExitInterrupted)
            throw;
        return {Fails,
                failure.exitStatus == ExitTimedOut ? QStringLiteral("is on the bus and does not answer")
                                                   : QStringLiteral("is on the bus, but: ") + failure.text,
                QStringLiteral("see in its log which remote call it is waiting for")};
    }
    if (const auto fault =
            CheckInterface(board, Names::PhoneService, Names::PhoneObject, PhoneProxy::staticInterfaceName()))
        return *fault;
    const QString program = ProgramOf(board, Names::PhoneService);
    if (program.endsWith(QLatin1String(" (deleted)")))
        return {Fails, QStringLiteral("runs a program that has been replaced since: ") + program,
                QStringLiteral("systemctl --user restart phonemanager")};
    const QString version = PackageVersion(program);
    return {Holds, QStringLiteral("runs: %1%2%3")
                       .arg(program.isEmpty() ? QStringLiteral("program unknown") : program,
                            version.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(version),
                            IsActivatable(board, Names::PhoneService)
                                ? QString()
                                : QStringLiteral("; a request on the bus does not start it"))};
}

Finding CheckSettings(Board& board)
{
    const SettingsFile& file = board.settings;
    const QString path = QStringLiteral("\"%1\"").arg(file.path);
    if (!file.problem.isEmpty())
        return {Fails, QStringLiteral("%1: %2; so the phone counts as switched off").arg(path, file.problem),
                QStringLiteral("repair or remove the file")};
    if (!file.unwritable.isEmpty())
        return {Fails, QStringLiteral("%1 cannot be written: %2").arg(path, file.unwritable),
                QStringLiteral("let the service's user write there, or set KOVA_CONFIG_FILE for the service")};
    if (board.state && board.state->userEnabled != file.phoneEnabled)
        return {Fails,
                QStringLiteral("the service reads enabled=%1, which differs from %2")
                    .arg(board.state->userEnabled ? 1 : 0)
                    .arg(path),
                QStringLiteral("compare KOVA_CONFIG_FILE here and in the service's unit")};
    return {Holds,
            QStringLiteral("%1%2: phone %3, data %4")
                .arg(path, file.exists ? QString() : QStringLiteral(" is not there yet"),
                     QLatin1String(file.phoneEnabled ? "on" : "off"), QLatin1String(file.gprsEnabled ? "on" : "off"))};
}

/// Checks that a service that phonemanager needs is on the bus and implements its interface.
Finding CheckPeer(Board& board, const char* service, const char* path, const char* interface)
{
    if (!board.phone.IsOnBus(service)) {
        const bool activatable = IsActivatable(board, service);
        return {Fails,
                QStringLiteral("%1 is not on the bus%2")
                    .arg(QLatin1String(service),
                         activatable ? QStringLiteral("; the bus could start it, but the service does not ask for that")
                                     : QString()),
                QStringLiteral("start it in this session")};
    }
    if (const auto fault = CheckInterface(board, service, path, interface))
        return *fault;
    const QString program = ProgramOf(board, service);
    return {Holds, program.isEmpty() ? QLatin1String(service) : program};
}

Finding CheckGsmDaemon(Board& board)
{
    return CheckPeer(board, Names::GsmService, Names::GsmObject, Names::GsmInterface);
}

/// Only kova-gsmd uses a stock modem stack.
Finding CheckStack(Board& board)
{
    if (!ProgramOf(board, Names::GsmService).endsWith(QLatin1String("/kova-gsmd")))
        return {Holds, QStringLiteral("not asked: the GSM daemon is not kova-gsmd")};
    const ModemStacks stacks;
    if (!stacks.problem.isEmpty())
        return {Fails, stacks.problem, QStringLiteral("start the system bus and a modem stack on it")};
    if (stacks.names.isEmpty())
        return {Fails, QStringLiteral("neither oFono nor ModemManager is on the system bus"),
                QStringLiteral("systemctl start ofono, or ModemManager")};
    if (stacks.modems.isEmpty())
        return {Fails, stacks.names.join(QStringLiteral(" and ")) + QStringLiteral(" knows no modem"),
                QStringLiteral("see whether the kernel has found it: dmesg, lsusb")};
    return {Holds, stacks.modems.join(QStringLiteral("; ")),
            stacks.names.size() > 1 ? QStringLiteral("stop one of the two stacks: both reach for the modem")
                                    : QString()};
}

Finding CheckPower(Board& board)
{
    if (board.state->phoneStatus != ModemStatusOff)
        return {Holds, QStringLiteral("the modem is on")};
    if (board.state->forced)
        return {NotYet, QStringLiteral("the modem is forced off"), QStringLiteral("phonectl force-off off")};
    if (!board.IsWanted())
        return {NotYet, QStringLiteral("nobody has asked for the modem"), QStringLiteral("phonectl enable --wait")};
    if (board.AwaitEvent(PhoneEvent::PhoneStatus, QStringLiteral("the modem's power"), PowerUpMs) &&
        board.state->phoneStatus != ModemStatusOff)
        return {Holds, QStringLiteral("the modem has just been switched on")};
    return {Fails, QStringLiteral("the modem should be on, but has not reported that it is"),
            QStringLiteral("look for Gsmd->ModemSetEnabled(1) in the service's log, and at the GSM daemon's own log")};
}

Finding CheckSim(Board& board)
{
    if (board.state->simStatus == SimStatusChecking && board.state->phoneStatus != ModemStatusOff)
        board.AwaitEvent(PhoneEvent::SimPresent, QStringLiteral("the SIM check"), SimCheckMs);
    switch (board.state->simStatus) {
    case SimStatusPresent: return {Holds, QStringLiteral("present")};
    case SimStatusAbsent:
        return {Fails, SimStatusWord(SimStatusAbsent),
                QStringLiteral("insert a card; the modem is switched off and on until there is one")};
    default:
        return {NotYet, SimStatusWord(board.state->simStatus),
                QStringLiteral("wait: the check is due 20 s after the modem was powered")};
    }
}

Finding CheckRegistration(Board& board)
{
    if (board.state->phoneStatus == ModemStatusRegistered)
        return {Holds, QStringLiteral("registered to the network")};
    return {NotYet, PhoneStatusWord(board.state->phoneStatus),
            board.state->phoneStatus == ModemStatusOff
                ? QStringLiteral("the modem needs power first")
                : QStringLiteral("wait up to 180 s; then look at antenna, coverage and the SIM card's PIN")};
}

Finding CheckSignal(Board& board)
{
    if (board.state->phoneStatus != ModemStatusRegistered)
        return {NotYet, QStringLiteral("not registered"), QStringLiteral("the modem registers first")};
    const SignalStrength strength = ReadSignal(board.state->rssi);
    if (board.state->rssi == 0)
        return {NotYet, strength.word, QStringLiteral("the GSM daemon must report it every five minutes at least")};
    if (!strength.dBm)
        return {Fails, strength.word, QStringLiteral("the GSM daemon reports the strength in dBm, as one byte")};
    return {Holds, QStringLiteral("%1 (%2 dBm)").arg(strength.word).arg(*strength.dBm)};
}

Finding CheckDataLink(Board& board)
{
    if (!board.settings.gprsEnabled)
        return {Holds, QStringLiteral("not asked for")};
    QFile flags(QStringLiteral("/sys/class/net/ppp0/flags"));
    if (flags.open(QIODevice::ReadOnly) && (flags.readAll().trimmed().toUInt(nullptr, 0) & IFF_UP) != 0)
        return {Holds, QStringLiteral("ppp0 is up")};
    const QString found =
        flags.isOpen() ? QStringLiteral("ppp0 is not up") : QStringLiteral("there is no interface ppp0");
    if (board.state->phoneStatus != ModemStatusRegistered)
        return {NotYet, found, QStringLiteral("the modem registers first")};
    return {Fails, found + QStringLiteral("; ten minutes after registration the modem is switched off and on"),
            QStringLiteral("set the access point with phonectl apn, and see pppd's log")};
}

Finding CheckSoundManager(Board& board)
{
    return CheckPeer(board, Names::SoundManagerService, Names::SoundManagerObject, Names::SoundManagerInterface);
}

Finding CheckAudioOutCtl(Board& board)
{
    return CheckPeer(board, Names::AudioOutCtlService, Names::AudioOutCtlObject, Names::AudioOutCtlInterface);
}

Finding CheckAudioInCtl(Board& board)
{
    return CheckPeer(board, Names::AudioInCtlService, Names::AudioInCtlObject, Names::AudioInCtlInterface);
}

Finding CheckContacts(Board& board)
{
    const QString path = board.environment.Path(DeviceFiles::Contacts);
    const QString add = QStringLiteral("phonectl contacts add NUMBER NAME --may-call-in");
    if (!QFileInfo::exists(path))
        return {NotYet, QStringLiteral("\"%1\" is not there, so every caller is a stranger").arg(path), add};
    QStringList callers;
    int count = 0;
    try {
        for (const ContactBook::Contact& contact : ContactBook(path).All()) {
            ++count;
            if (contact.flags & ContactBook::MayCallIn)
                callers.append(contact.name.isEmpty() ? contact.number : contact.name);
        }
    } catch (const Failure& failure) {
        return {Fails, failure.text};
    }
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
    const bool isOpen = (QFile::permissions(path) & others) != QFile::Permissions();
    const QString mode = isOpen ? QStringLiteral("chmod 600 \"%1\": others can read it").arg(path) : QString();
    if (callers.isEmpty())
        return {NotYet, QStringLiteral("%1, none of whom may call in").arg(count), add};
    return {Holds, QStringLiteral("%1, of whom may call in: %2").arg(count).arg(callers.join(QStringLiteral(", "))),
            mode};
}

constexpr struct {
    const char* key; ///< in JSON
    const char* title;
    Finding (*check)(Board& board);
    bool needsState; ///< the answer to GetStatus
} steps[] = {
    {"service", "Service", CheckService, false},
    {"settings", "Settings", CheckSettings, false},
    {"gsmDaemon", "GSM daemon", CheckGsmDaemon, false},
    {"modemStack", "Modem stack", CheckStack, false},
    {"power", "Modem power", CheckPower, true},
    {"sim", "SIM card", CheckSim, true},
    {"registration", "Registration", CheckRegistration, true},
    {"signal", "Signal", CheckSignal, true},
    {"dataLink", "Data link", CheckDataLink, true},
    {"soundManager", "Sound manager", CheckSoundManager, false},
    {"audioOutCtl", "Audio output control", CheckAudioOutCtl, false},
    {"audioInCtl", "Audio input control", CheckAudioInCtl, false},
    {"contacts", "Contacts", CheckContacts, false},
};

/// Runs a step. A Failure other than Ctrl-C becomes its finding.
Finding Check(Board& board, Finding (*check)(Board&))
{
    board.phone.Unlimit(); // the limit of an earlier step
    try {
        return check(board);
    } catch (const Failure& failure) {
        if (failure.exitStatus == ExitInterrupted)
            throw;
        return {NotYet,
                failure.exitStatus == ExitTimedOut ? QStringLiteral("not examined within --timeout") : failure.text};
    }
}

/// All findings, for a person and for a script.
class Findings
{
public:
    void Add(const char* key, const char* title, const Finding& finding)
    {
        ++counts[finding.verdict];
        const auto& verdict = verdicts[finding.verdict];
        lines.append(Painted(QString::fromLatin1(verdict.word).leftJustified(VerdictWidth), verdict.colour) +
                     QString::fromLatin1(title).leftJustified(TitleWidth) + Printable(finding.found));
        if (!finding.next.isEmpty())
            lines.append(QString(VerdictWidth + TitleWidth, QLatin1Char(' ')) + QStringLiteral("-> ") +
                         Printable(finding.next));
        array.append(QJsonObject{{"step", QLatin1String(key)},
                                 {"verdict", QString::fromLatin1(verdict.word).toLower()},
                                 {"found", finding.found},
                                 {"next", finding.next}});
    }

    Outcome Result() const
    {
        const QString sum = counts[Fails] > 0 || counts[NotYet] > 0 ? QStringLiteral("%1 hold, %2 fail, %3 not yet")
                                                                          .arg(counts[Holds])
                                                                          .arg(counts[Fails])
                                                                          .arg(counts[NotYet])
                                                                    : QStringLiteral("all holds");
        return {(lines + QStringList{QString(), sum}).join(QLatin1Char('\n')),
                {{"steps", array}, {"failed", counts[Fails]}, {"notYet", counts[NotYet]}},
                counts[Fails] > 0 ? ExitRefused : ExitDone};
    }

private:
    int counts[std::size(verdicts)] = {};
    QStringList lines;
    QJsonArray array;
};

}

Outcome Examine(const Arguments& arguments, Progress& progress)
{
    Findings findings;
    std::optional<PhoneClient> phone;
    try {
        phone.emplace(arguments, progress);
    } catch (const Failure& failure) {
        findings.Add("bus", "Session bus",
                     {Fails, failure.text, QStringLiteral("run phonectl as the service's user, in its session")});
        return findings.Result();
    }
    findings.Add("bus", "Session bus",
                 {Holds, qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS", QStringLiteral("found"))});

    const ServiceEnvironment environment(*phone);
    Board board{*phone, environment, SettingsFile(environment), phone->IsOnBus(Names::PhoneService)};
    for (const auto& step : steps) {
        if (step.needsState && !board.state)
            findings.Add(step.key, step.title, {NotYet, QStringLiteral("not known without the service's answer")});
        else if (step.needsState && !phone->IsOnBus(Names::GsmService))
            findings.Add(step.key, step.title, {NotYet, QStringLiteral("not known without the GSM daemon")});
        else
            findings.Add(step.key, step.title, Check(board, step.check));
    }
    return findings.Result();
}
