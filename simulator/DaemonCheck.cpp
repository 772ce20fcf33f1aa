#include "DaemonCheck.h"

#include "BusValues.h"
#include "Names.h"
#include "TimeLimits.h"

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

constexpr int ExitFaulty = 1;
constexpr int ExitNoDaemon = 3;

/// Late answers are awaited for this much longer, to report how late they are.
constexpr int LateGraceMs = 5000;

constexpr int RingingLimitMs = TimeLimits::OutgoingCallS * 1000;
constexpr int ReportLimitMs = 60000; ///< strict: the service needs one in ten minutes
constexpr int SimRetryIntervalMs = 1000;
constexpr int PollIntervalMs = 100;
constexpr int SettlingTimeMs = 500; ///< in which a signal that must not come would come

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

DaemonCheck::DaemonCheck() : contract(InterfaceDescription::BuiltIn(QLatin1String(Names::GsmInterface)))
{
    clock.start();
}

void DaemonCheck::ReportGood(const QString& text)
{
    Print("good", text);
}

void DaemonCheck::ReportFault(const QString& text)
{
    ++faults;
    Print("MEND", text);
}

void DaemonCheck::OnSignal(const QDBusMessage& message)
{
    const QString expected = contract.Signals().value(message.member()).join(QString());
    if (message.signature() != expected)
        ReportFault(
            QStringLiteral("signal %1 came with (%2), not (%3)").arg(message.member(), message.signature(), expected));
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
        Wait(static_cast<int>(std::min<qint64>(left, PollIntervalMs)));
    }
}

DaemonCheck::Reply DaemonCheck::Call(const QString& method, const QVariantList& arguments, int limitMs)
{
    QDBusMessage request = QDBusMessage::createMethodCall(Names::GsmService, Names::GsmObject, contract.Name(), method);
    request.setArguments(arguments);
    const qint64 start = clock.elapsed();
    const QDBusPendingCall call = QDBusConnection::sessionBus().asyncCall(request, limitMs + LateGraceMs);
    QEventLoop loop;
    const QDBusPendingCallWatcher watcher(call);
    connect(&watcher, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
    if (!watcher.isFinished())
        loop.exec();

    const qint64 took = clock.elapsed() - start;
    const QString what = method + ToText(arguments);
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

void DaemonCheck::Report(const Reply& reply)
{
    if (reply.good)
        ReportGood(reply.text);
    else
        ReportFault(reply.text);
}

DaemonCheck::Reply DaemonCheck::Check(const QString& method, const QVariantList& arguments, int limitMs)
{
    const Reply reply = Call(method, arguments, limitMs);
    Report(reply);
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
        TimeLimits::GsmCallMs);
    QDBusPendingReply<QString> reply = call;
    reply.waitForFinished();
    if (!QDBusConnection::sessionBus().interface()->isServiceRegistered(Names::GsmService))
        return false;
    const auto offered = reply.isError() ? std::nullopt : InterfaceDescription::Read(reply.value(), contract.Name());
    if (!offered) {
        ReportFault(QStringLiteral("%1 does not describe the interface %2; checked by its answers alone")
                        .arg(Names::GsmObject, contract.Name()));
        return true;
    }
    const QStringList missing = contract.MissingIn(*offered);
    for (const QString& line : missing)
        ReportFault(QStringLiteral("description: ") + line);
    if (missing.isEmpty())
        ReportGood(QStringLiteral("description: every method and signal is as agreed"));
    return true;
}

/// The service also starts by switching the modem off.
bool DaemonCheck::PowerOn()
{
    if (!Check("ModemSetEnabled", {false}, TimeLimits::GsmPowerOffMs).good)
        return false;
    // A modem that was off already need not report it.
    Await({"ModemOff"}, SettlingTimeMs);
    const Reply status = Check("ModemGetStatus", {}, TimeLimits::GsmShortMs);
    if (status.good && status.values.value(1).toInt() != 0 && Await({"ModemOff"}, TimeLimits::GsmPowerOffMs).isEmpty())
        ReportFault(QStringLiteral("no ModemOff within %1 of power-off").arg(Seconds(TimeLimits::GsmPowerOffMs)));

    Forget();
    const Reply powered = Check("ModemSetEnabled", {true}, TimeLimits::GsmShortMs);
    if (Await({"ModemPowered", "ModemRegistered"}, TimeLimits::PowerToRegisteredMs).isEmpty()) {
        ReportFault(
            QStringLiteral("no ModemPowered within %1 of power-on").arg(Seconds(TimeLimits::PowerToRegisteredMs)));
        return false;
    }
    if (Count("ModemPowered") == 0)
        ReportFault(
            QStringLiteral("ModemRegistered without a ModemPowered before it: the SIM card would not be checked"));
    return powered.good || Count("ModemPowered") > 0;
}

/// The service checks the SIM card 20 s after ModemPowered. Until then the daemon may fail or not see the card yet.
bool DaemonCheck::CheckSim()
{
    const qint64 end = clock.elapsed() + TimeLimits::SimCheckDelayMs;
    Reply reply = Call("IsSimPresent", {}, TimeLimits::GsmShortMs);
    while (clock.elapsed() < end && !(reply.good && reply.values.value(1).toBool())) {
        Wait(SimRetryIntervalMs);
        reply = Call("IsSimPresent", {}, TimeLimits::GsmShortMs);
    }
    Report(reply);
    const bool present = reply.values.value(1).toBool();
    if (reply.good && !present)
        ReportFault(QStringLiteral("no SIM card %1 after ModemPowered; insert one, the rest needs it")
                        .arg(Seconds(TimeLimits::SimCheckDelayMs)));
    return !reply.good || present;
}

bool DaemonCheck::CheckRegistration()
{
    if (Await({"ModemRegistered"}, TimeLimits::PowerToRegisteredMs).isEmpty()) {
        ReportFault(
            QStringLiteral("no ModemRegistered within %1 of power-on").arg(Seconds(TimeLimits::PowerToRegisteredMs)));
        return false;
    }
    ReportGood(QStringLiteral("ModemPowered and ModemRegistered came"));
    if (Await({"SignalQuality"}, ReportLimitMs).isEmpty())
        ReportFault(QStringLiteral(
                        "no SignalQuality within %1 of registration; the service cycles a modem that reports none for "
                        "ten minutes")
                        .arg(Seconds(ReportLimitMs)));
    else
        ReportGood(QStringLiteral("SignalQuality came"));
    Check("PingRegistration", {}, TimeLimits::GsmShortMs);
    Check("SignalStrength", {}, TimeLimits::GsmShortMs);
    return true;
}

void DaemonCheck::CheckCall(const QString& number)
{
    Forget();
    if (!Check("Call", {number}, TimeLimits::GsmCallMs).good)
        return;
    std::printf("       (answer at %s within %s)\n", qPrintable(number), qPrintable(Seconds(RingingLimitMs)));
    const QString outcome = Await({"CallAnswered", "CallRejected", "CallTerminated"}, RingingLimitMs);
    const bool answered = outcome == QLatin1String("CallAnswered");
    if (answered || outcome.isEmpty())
        Check("CallHangup", {}, TimeLimits::GsmCallMs);
    const QString end = Await({"CallRejected", "CallTerminated"}, TimeLimits::GsmCallMs);
    const QString expected = answered ? QStringLiteral("CallTerminated") : QStringLiteral("CallRejected");
    if (end != expected)
        ReportFault(QStringLiteral("a call that was %1 ended with %2, not %3")
                        .arg(answered ? "answered" : "not answered", end.isEmpty() ? QStringLiteral("no signal") : end,
                             expected));
    else
        ReportGood(QStringLiteral("a call that was %1 ended with %2").arg(answered ? "answered" : "not answered", end));
}

/// An emergency loop moves on only if a call that nobody answers, and that is then hung up, counts as rejected.
void DaemonCheck::CheckLoop(const QString& number)
{
    Forget();
    if (!Check("Call", {number}, TimeLimits::GsmCallMs).good)
        return;
    Check("CallHangup", {}, TimeLimits::GsmCallMs);
    const QString end = Await({"CallRejected", "CallTerminated"}, TimeLimits::GsmCallMs);
    if (Count("CallAnswered") == 0 && end != QLatin1String("CallRejected"))
        ReportFault(
            QStringLiteral("a call hung up before it was answered ended with %1, not CallRejected: an emergency loop "
                           "would stop at a number that rings in vain")
                .arg(end.isEmpty() ? QStringLiteral("no signal") : end));
    else
        ReportGood(QStringLiteral("a call hung up before it was answered ended with ") + end);
    Check("CallHangupAll", {}, TimeLimits::GsmCallMs);
}

void DaemonCheck::PowerOff()
{
    Forget();
    Check("ModemSetEnabled", {false}, TimeLimits::GsmPowerOffMs);
    Await({"ModemOff"}, TimeLimits::GsmPowerOffMs);
    Await({}, SettlingTimeMs);
    if (const int count = Count("ModemOff"); count != 1)
        ReportFault(QStringLiteral("ModemOff came %1 times, not once, after power-off").arg(count));
    else
        ReportGood(QStringLiteral("ModemOff came once"));
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
        return ExitFaulty;
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
            Check("SendSms", {numbers.sms, QStringLiteral("kova-simulator check-gsmd")}, TimeLimits::GsmSmsMs);
    }
    PowerOff();
    std::printf("%s\n", faults == 0 ? "nothing to mend" : qPrintable(QStringLiteral("%1 to mend").arg(faults)));
    return faults == 0 ? 0 : ExitFaulty;
}
