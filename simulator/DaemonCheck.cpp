#include "DaemonCheck.h"

#include "Interface.h"
#include "Names.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <cstdio>

namespace
{

constexpr int ExitMend = 1;
constexpr int ExitNoDaemon = 3;

// How long the phone service waits for answers, in milliseconds.
constexpr int ShortLimit = 3000;
constexpr int CallLimit = 15000;
constexpr int SmsLimit = 20000;
constexpr int PowerOffLimit = 60000;
/// An answer that is late is awaited for so much longer, to report how late it is.
constexpr int Patience = 5000;

// Its other time limits.
constexpr int RegistrationLimit = 180000; ///< from power-on on; then the modem is cycled
constexpr int SimCheckDelay = 20000;      ///< from power-on until it asks for the SIM card
constexpr int RingingLimit = 30000;       ///< then it hangs up
constexpr int ReportLimit = 60000;        ///< generous: it needs one in ten minutes
constexpr int SimRetryInterval = 1000;
constexpr int PollInterval = 100;
constexpr int SettlingTime = 500; ///< for a signal that must not come

void Print(const char* verdict, const QString& text)
{
    std::printf("%-6s %s\n", verdict, qPrintable(text));
    std::fflush(stdout);
}

QString Seconds(int ms)
{
    return QStringLiteral("%1 s").arg(ms / 1000);
}

}

DaemonCheck::DaemonCheck() : contract(BuiltInDescription(QLatin1String(Names::GsmInterface)))
{
    clock.start();
}

void DaemonCheck::Good(const QString& text)
{
    Print("good", text);
}

void DaemonCheck::Mend(const QString& text)
{
    ++faults;
    Print("MEND", text);
}

void DaemonCheck::OnSignal(const QDBusMessage& message)
{
    const QString expected = contract.Signals().value(message.member()).join(QString());
    if (message.signature() != expected)
        Mend(QStringLiteral("signal %1 came with (%2), not (%3)").arg(message.member(), message.signature(), expected));
    received.append({message.member(), clock.elapsed()});
}

int DaemonCheck::Count(const QString& name) const
{
    return static_cast<int>(
        std::count_if(received.begin(), received.end(), [&](const Signal& signal) { return signal.name == name; }));
}

QString DaemonCheck::Await(const QStringList& names, int limitMs)
{
    const qint64 end = clock.elapsed() + limitMs;
    while (true) {
        for (const Signal& signal : received) {
            if (names.contains(signal.name))
                return signal.name;
        }
        const qint64 left = end - clock.elapsed();
        if (left <= 0)
            return {};
        Wait(static_cast<int>(std::min<qint64>(left, PollInterval)));
    }
}

DaemonCheck::Reply DaemonCheck::Ask(const QString& method, const QVariantList& arguments, int limitMs)
{
    QDBusMessage request = QDBusMessage::createMethodCall(Names::GsmService, Names::GsmObject, contract.Name(), method);
    request.setArguments(arguments);
    const qint64 start = clock.elapsed();
    const QDBusPendingCall call = QDBusConnection::sessionBus().asyncCall(request, limitMs + Patience);
    QEventLoop loop;
    const QDBusPendingCallWatcher watcher(call);
    connect(&watcher, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
    if (!watcher.isFinished())
        loop.exec();

    const qint64 took = clock.elapsed() - start;
    const QString what = method + Show(arguments);
    const QDBusMessage reply = QDBusPendingReply<>(call).reply();
    const QString types = contract.Methods().value(method).out.join(QString());
    if (took > limitMs || reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NoReply"))
        return {
            false,
            QStringLiteral("%1: %2 ms without an answer; the service waits %3 ms").arg(what).arg(took).arg(limitMs)};
    if (reply.type() != QDBusMessage::ReplyMessage)
        return {
            false,
            QStringLiteral("%1: error %2 (%3); answer a status").arg(what, reply.errorName(), reply.errorMessage())};
    if (reply.signature() != types)
        return {false, QStringLiteral("%1: answers (%2), not (%3)").arg(what, reply.signature(), types)};
    if (const int status = reply.arguments().at(0).toInt(); status != 0)
        return {false, QStringLiteral("%1: status %2, not 0").arg(what).arg(status), reply.arguments()};
    return {true, QStringLiteral("%1: answered after %2 ms (limit %3 ms)").arg(what).arg(took).arg(limitMs),
            reply.arguments()};
}

void DaemonCheck::Judge(const Reply& reply)
{
    if (reply.good)
        Good(reply.text);
    else
        Mend(reply.text);
}

DaemonCheck::Reply DaemonCheck::Try(const QString& method, const QVariantList& arguments, int limitMs)
{
    const Reply reply = Ask(method, arguments, limitMs);
    Judge(reply);
    return reply;
}

void DaemonCheck::Wait(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

bool DaemonCheck::CompareDescriptions()
{
    const QDBusPendingCall call = QDBusConnection::sessionBus().asyncCall(
        QDBusMessage::createMethodCall(Names::GsmService, Names::GsmObject, "org.freedesktop.DBus.Introspectable",
                                       "Introspect"),
        CallLimit);
    QDBusPendingReply<QString> reply = call;
    reply.waitForFinished();
    if (!QDBusConnection::sessionBus().interface()->isServiceRegistered(Names::GsmService))
        return false;
    const auto offered = reply.isError() ? std::nullopt : InterfaceDescription::Read(reply.value(), contract.Name());
    if (!offered) {
        Mend(QStringLiteral("%1 does not describe the interface %2; checked by its answers alone")
                 .arg(Names::GsmObject, contract.Name()));
        return true;
    }
    const QStringList missing = contract.MissingIn(*offered);
    for (const QString& line : missing)
        Mend(QStringLiteral("description: ") + line);
    if (missing.isEmpty())
        Good(QStringLiteral("description: every method and signal is as agreed"));
    return true;
}

/// The service begins with a modem that it has switched off, and goes on from there.
bool DaemonCheck::PowerOn()
{
    if (!Try("ModemSetEnabled", {false}, PowerOffLimit).good)
        return false;
    // A modem that was off need not say so.
    Await({"ModemOff"}, SettlingTime);
    const Reply status = Try("ModemGetStatus", {}, ShortLimit);
    if (status.good && status.values.value(1).toInt() != 0 && Await({"ModemOff"}, PowerOffLimit).isEmpty())
        Mend(QStringLiteral("no ModemOff within %1 of power-off").arg(Seconds(PowerOffLimit)));

    Forget();
    const Reply powered = Try("ModemSetEnabled", {true}, ShortLimit);
    if (Await({"ModemPowered", "ModemRegistered"}, RegistrationLimit).isEmpty()) {
        Mend(QStringLiteral("no ModemPowered within %1 of power-on").arg(Seconds(RegistrationLimit)));
        return false;
    }
    if (Count("ModemPowered") == 0)
        Mend(QStringLiteral("ModemRegistered without a ModemPowered before it: the SIM card would not be checked"));
    return powered.good || Count("ModemPowered") > 0;
}

/// The service asks 20 s after ModemPowered. Until then the daemon may refuse to say, or find no card yet.
bool DaemonCheck::CheckSim()
{
    const qint64 end = clock.elapsed() + SimCheckDelay;
    Reply reply = Ask("IsSimPresent", {}, ShortLimit);
    while (clock.elapsed() < end && !(reply.good && reply.values.value(1).toBool())) {
        Wait(SimRetryInterval);
        reply = Ask("IsSimPresent", {}, ShortLimit);
    }
    Judge(reply);
    const bool present = reply.values.value(1).toBool();
    if (reply.good && !present)
        Mend(QStringLiteral("no SIM card %1 after ModemPowered; insert one, the rest needs it")
                 .arg(Seconds(SimCheckDelay)));
    return !reply.good || present;
}

bool DaemonCheck::CheckRegistration()
{
    if (Await({"ModemRegistered"}, RegistrationLimit).isEmpty()) {
        Mend(QStringLiteral("no ModemRegistered within %1 of power-on").arg(Seconds(RegistrationLimit)));
        return false;
    }
    Good(QStringLiteral("ModemPowered and ModemRegistered came"));
    if (Await({"SignalQuality"}, ReportLimit).isEmpty())
        Mend(QStringLiteral(
                 "no SignalQuality within %1 of registration; the service cycles a modem that reports none for "
                 "ten minutes")
                 .arg(Seconds(ReportLimit)));
    else
        Good(QStringLiteral("SignalQuality came"));
    Try("PingRegistration", {}, ShortLimit);
    Try("SignalStrength", {}, ShortLimit);
    return true;
}

void DaemonCheck::CheckCall(const QString& number)
{
    Forget();
    if (!Try("Call", {number}, CallLimit).good)
        return;
    std::printf("       (answer at %s within %s)\n", qPrintable(number), qPrintable(Seconds(RingingLimit)));
    const QString outcome = Await({"CallAnswered", "CallRejected", "CallTerminated"}, RingingLimit);
    const bool answered = outcome == QLatin1String("CallAnswered");
    if (answered || outcome.isEmpty())
        Try("CallHangup", {}, CallLimit);
    const QString end = Await({"CallRejected", "CallTerminated"}, CallLimit);
    const QString expected = answered ? QStringLiteral("CallTerminated") : QStringLiteral("CallRejected");
    if (end != expected)
        Mend(QStringLiteral("a call that was %1 ended with %2, not %3")
                 .arg(answered ? "answered" : "not answered", end.isEmpty() ? QStringLiteral("no signal") : end,
                      expected));
    else
        Good(QStringLiteral("a call that was %1 ended with %2").arg(answered ? "answered" : "not answered", end));
}

/// The emergency loop goes on only if a call that rings in vain, and is hung up here, counts as rejected.
void DaemonCheck::CheckLoop(const QString& number)
{
    Forget();
    if (!Try("Call", {number}, CallLimit).good)
        return;
    Try("CallHangup", {}, CallLimit);
    const QString end = Await({"CallRejected", "CallTerminated"}, CallLimit);
    if (Count("CallAnswered") == 0 && end != QLatin1String("CallRejected"))
        Mend(QStringLiteral("a call hung up before it was answered ended with %1, not CallRejected: an emergency loop "
                            "would stop at a number that rings in vain")
                 .arg(end.isEmpty() ? QStringLiteral("no signal") : end));
    else
        Good(QStringLiteral("a call hung up before it was answered ended with ") + end);
    Try("CallHangupAll", {}, CallLimit);
}

void DaemonCheck::PowerOff()
{
    Forget();
    Try("ModemSetEnabled", {false}, PowerOffLimit);
    Await({"ModemOff"}, PowerOffLimit);
    Await({}, SettlingTime);
    if (const int count = Count("ModemOff"); count != 1)
        Mend(QStringLiteral("ModemOff came %1 times, not once, after power-off").arg(count));
    else
        Good(QStringLiteral("ModemOff came once"));
}

int DaemonCheck::Run(const Numbers& numbers)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        std::fprintf(stderr, "kova-simulator: no session bus\n");
        return ExitNoDaemon;
    }
    if (bus.interface()->isServiceRegistered(Names::PhoneService)) {
        std::fprintf(stderr, "kova-simulator: stop phonemanager first: it steers the daemon, too\n");
        return ExitMend;
    }
    const QStringList signalNames = contract.Signals().keys();
    for (const QString& name : signalNames)
        bus.connect(Names::GsmService, Names::GsmObject, contract.Name(), name, this, SLOT(OnSignal(QDBusMessage)));
    if (!CompareDescriptions()) {
        std::fprintf(stderr, "kova-simulator: nobody has the name %s on this bus\n", Names::GsmService);
        return ExitNoDaemon;
    }

    if (PowerOn() && CheckSim() && CheckRegistration()) {
        if (!numbers.call.isEmpty()) {
            CheckCall(numbers.call);
            CheckLoop(numbers.call);
        }
        if (!numbers.sms.isEmpty())
            Try("SendSms", {numbers.sms, QStringLiteral("kova-simulator check-gsmd")}, SmsLimit);
    }
    PowerOff();
    std::printf("%s\n", faults == 0 ? "nothing to mend" : qPrintable(QStringLiteral("%1 to mend").arg(faults)));
    return faults == 0 ? 0 : ExitMend;
}
