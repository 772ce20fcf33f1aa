#include "BusValues.h"
#include "ControlNames.h"
#include "GsmProxy.h"
#include "Names.h"
#include "SimulatorProxy.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <csignal>

namespace
{

constexpr int LimitMs = 30000; ///< for expected events, even on a busy machine
constexpr int Speed = 10;      ///< of the clock of the daemon and of ModemManager, which shortens their time limits

const QStringList bringUp = {"ask ModemSetEnabled true = 0", "see ModemPowered()", "see ModemRegistered()"};
const QStringList callActive = {"device number 491 no-answer", "ask Call 491 = 0", "state call dialling",
                                "device answer", "see CallAnswered(491)"};

/// A list of steps. A step acts on the daemon, the modem or the stack, or waits for an expected result:
///   ask METHOD ARGUMENT... = VALUE...   call a method, and compare the answer
///   begin METHOD ARGUMENT...            call a method, and do not wait
///   see SIGNAL(VALUE)                   the daemon's next signal, apart from other reports of the strength;
///                                       ", perhaps after SIGNAL(VALUE)" allows one more signal before it
///   device COMMAND                      control the simulated modem
///   state NAME VALUE                    wait until the modem's state has that value
///   ping in vain                        ping until the daemon logs that the modem does not answer
///   gsmd|stack start|kill|freeze|thaw   start, kill, stop or continue kova-gsmd or the stack
///   stack plug                          make ModemManager detect its virtual modem again
/// A case or a step that begins with "ofono: " or "modemmanager: " applies to that stack only: ModemManager's
/// virtual modem does not notice a pulled card or cable, and its second callers are not hung up.
struct Case {
    const char* name;
    QStringList steps;
};

const Case cases[] = {
    // First, because ModemManager never checks the strength again after a power-off during a check.
    {"strength and ping",
     {"ask SignalStrength = 0 70", "device signal 40", "see SignalQuality(38)", "ask PingRegistration = 0",
      "see SignalQuality(38)", "device signal 71", "see SignalQuality(70)"}},
    {"off and on and off in quick succession",
     {"begin ModemSetEnabled false", "begin ModemSetEnabled true", "see ModemPowered(), perhaps after ModemOff()",
      "see ModemRegistered()", "begin ModemSetEnabled false", "begin ModemSetEnabled true",
      "ask ModemSetEnabled false = 0", "see ModemOff()", "ask ModemSetEnabled true = 0",
      "see ModemPowered(), perhaps after ModemOff()", "see ModemRegistered()"}},
    {"call out", callActive + QStringList{"ask Call 492 = 1", "device hangup", "see CallTerminated(491)"}},
    {"busy number", {"device number 491 reject", "ask Call 491 = 0", "see CallRejected(491)"}},
    {"dial fails",
     {"device number 491 unreachable", "ask Call 491 = 0", "see CallRejected(491)", "ask Call ,, = 0",
      "see CallRejected(,,)"}},
    {"hang up what rings in vain",
     {"device number 491 no-answer", "ask Call 491 = 0", "state call dialling", "ask CallHangup = 0",
      "see CallRejected(491)", "state call none"}},
    {"hang up all",
     {"device number 491 no-answer", "ask Call 491 = 0", "state call dialling", "ask CallHangupAll = 0",
      "see CallTerminated(491)", "state call none"}},
    {"hang up before the stack knows the call",
     {"device fault Call delay 1000 times 1", "device number 491 no-answer", "ask Call 491 = 0", "ask CallHangup = 0",
      "see CallRejected(491)", "state call none"}},
    {"a call comes in",
     {"device ring 493", "see CallIncoming(493)", "ask CallAnswer = 0", "state call active", "device hangup",
      "see CallTerminated(493)"}},
    {"ofono: answer that takes too long",
     {"device ring 493", "see CallIncoming(493)", "device fault CallAnswer delay 1400 times 1", "ask CallAnswer = 3",
      "see CallTerminated(493)", "state call none"}},
    {"withheld number",
     {"device ring withheld", "see CallIncoming()", "ask CallHangup = 0", "see CallTerminated()", "state call none"}},
    {"caller gives up",
     {"device ring 493", "see CallIncoming(493)", "device hangup", "see CallTerminated(493)", "ask CallAnswer = 1"}},
    {"messages",
     {"ask SendSms 494 Hello = 0", "state sms-sent 1", "device fault SendSms status 1 times 9",
      "ask SendSms 494 No = 2", "device fault SendSms clear", "device sms 495 Hello", "see MessageReceived(Hello)"}},
    {"modemmanager: message that is given up before the stack has it",
     {"stack freeze", "ask SendSms 494 Late = 3", "stack thaw", "ask SendSms 494 Next = 0", "state sms-sent 2"}},
    {"ofono: message that is given up",
     {"device fault SendSms delay 2500 times 1", "begin SendSms 494 Slow", "ask SendSms 494 Second = 3",
      "ask SendSms 494 Third = 0", "state sms-sent 3"}},
    {"ofono: message that is there before oFono can send",
     {"ask ModemSetEnabled false = 0", "see ModemOff()", "device fault IsSimPresent delay 500 times 1",
      "ask ModemSetEnabled true = 0", "see ModemPowered()", "ask SendSms 494 Early = 0", "see ModemRegistered()"}},
    {"message that takes long", {"device fault SendSms delay 30000 times 1", "ask SendSms 494 Slow = 3"}},
    {"modemmanager: message that came while nobody listened",
     {"gsmd kill", "device sms 495 Stored", "gsmd start", "see ModemAdded(*)", "ask IsSimPresent = 0 true",
      "ask ModemSetEnabled true = 0", "see ModemPowered()", "see ModemRegistered()", "see MessageReceived(Stored)",
      "ask ModemSetEnabled false = 0", "see ModemOff()", "ask ModemSetEnabled true = 0", "see ModemPowered()",
      "see ModemRegistered()"}},
    {"access point", {"ask GprsSetApn internet user word = 0", "state apn internet"}},
    {"network lost and found",
     {"device network lost", "see ModemPowered()", "ask PingRegistration = 1", "device network found",
      "see ModemRegistered()"}},
    {"stack killed in a call",
     callActive + QStringList{"stack kill", "see ModemOff()", "ask ModemSetEnabled true = 0", "ask Call 491 = 0",
                              "see CallRejected(491)", "ofono: state call active", "stack start", "see ModemAdded(*)",
                              "see ModemPowered()", "see ModemRegistered()", "state call none"}},
    {"killed in a call itself",
     callActive + QStringList{"gsmd kill", "gsmd start", "see ModemAdded(*)", "state call none",
                              "ask ModemSetEnabled false = 0", "ask ModemSetEnabled true = 0", "see ModemPowered()",
                              "see ModemRegistered()"}},
    {"modem hangs",
     {"device modem silent", "ping in vain", "ask ModemSetEnabled false = 0", "see ModemOff()", "device modem normal",
      "ask ModemSetEnabled true = 0", "see ModemPowered()", "see ModemRegistered()"}},
    {"no card",
     {"ask ModemSetEnabled false = 0", "see ModemOff()", "device sim out", "modemmanager: stack plug",
      "modemmanager: see ModemAdded(*)", "ask ModemSetEnabled true = 0", "see ModemPowered()",
      "ask IsSimPresent = 0 false", "ask ModemSetEnabled false = 0", "see ModemOff()", "device sim in",
      "modemmanager: stack plug", "modemmanager: see ModemAdded(*)", "ask ModemSetEnabled true = 0",
      "see ModemPowered()", "see ModemRegistered()", "ask IsSimPresent = 0 true"}},
    {"unplugged in a call",
     callActive + QStringList{"device modem unplug", "ofono: see ModemOff()", "ofono: ask IsSimPresent = 1 false",
                              "device modem plug", "modemmanager: stack plug", "modemmanager: see ModemOff()",
                              "modemmanager: see ModemAdded(*)", "ask ModemSetEnabled true = 0", "see ModemPowered()",
                              "see ModemRegistered()", "state call none"}},
    {"ofono: a second caller finds the line busy",
     {"device ring 493", "see CallIncoming(493)", "ask CallAnswer = 0", "device ring 494", "state waiting ",
      "state call active", "device hangup", "see CallTerminated(493)"}},
    {"ofono: card pulled",
     {"ask IsSimPresent = 0 true", "device sim out", "see ModemPowered()", "ask IsSimPresent = 0 false",
      "device sim in", "see ModemRegistered()", "ask IsSimPresent = 0 true"}},
};

bool IsForOtherStack(const QString& text)
{
    return text.contains(": ") && !text.startsWith(qEnvironmentVariable("STACK") + ": ");
}

QStringList Words(const QString& text)
{
    return text.split(QLatin1Char(' '));
}

}

/// Runs kova-gsmd on a real modem stack, which uses the simulated modem through an AT port.
class StackTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();
    void steps_data();
    void steps();

    void OnSignal(const QDBusMessage& message);

private:
    bool Step(const QString& step);
    bool See(const QString& step);
    bool Ask(const QString& request, const QString& wanted);
    bool Steer(QProcess& process, const QString& action);
    bool StartStack();
    bool PlugIn();
    bool StartGsmd();
    static QDBusMessage Request(const QString& text);

    const bool isOfono = qgetenv("STACK") == "ofono";
    QProcess stack;
    QProcess gsmd;
    QByteArray log;
    QStringList signalsSeen; ///< signals of the daemon that no step has checked yet
    QStringList record;
};

void StackTest::initTestCase()
{
    QDBusConnection::sessionBus().connect(QString(), Names::GsmObject, GsmProxy::staticInterfaceName(), QString(), this,
                                          SLOT(OnSignal(QDBusMessage)));
    connect(&gsmd, &QProcess::readyReadStandardError, this, [this] { log += gsmd.readAllStandardError(); });
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LD_PRELOAD", KOVA_FAKETIME);
    environment.insert("FAKETIME", "+0 x" + QString::number(Speed));
    environment.insert("FAKETIME_DISABLE_SHM", "1");
    if (!isOfono) {
        // ModemManager notices only after a minute that a modem hangs, and its test mode uses the session bus.
        stack.setProcessEnvironment(environment);
        environment.insert("DBUS_SYSTEM_BUS_ADDRESS", environment.value("DBUS_SESSION_BUS_ADDRESS"));
    }
    gsmd.setProcessEnvironment(environment);
    stack.setStandardErrorFile(qEnvironmentVariable("LOG_FOLDER") + "/stack.log");
    QVERIFY(StartStack());
}

void StackTest::cleanupTestCase()
{
    Steer(stack, "kill");
}

void StackTest::OnSignal(const QDBusMessage& message)
{
    QVariantList arguments = message.arguments();
    const QVariantMap info = qdbus_cast<QVariantMap>(arguments.value(0));
    if (!info.isEmpty())
        arguments = {info.value("LineIdentification")};
    if (message.member() == QLatin1String("MessageReceived") &&
        qdbus_cast<QVariantMap>(arguments.value(1)).value("Sender").toString().isEmpty())
        arguments = {"without a sender"};
    signalsSeen.append(message.member() + '(' + arguments.value(0).toString() + ')');
    if (message.signature() == QLatin1String("y"))
        signalsSeen.last() = message.member() + '(' + QString::number(arguments.at(0).toUInt()) + ')';
    record.append("  -> " + signalsSeen.last());
}

bool StackTest::StartStack()
{
    if (isOfono) {
        stack.start("ofonod", {"-n", "-d"});
        return stack.waitForStarted();
    }
    stack.start("ModemManager", {"--test-session", "--test-enable", "--no-auto-scan", "--debug"});
    return PlugIn();
}

/// Makes ModemManager detect its virtual modem, as if it were plugged in.
bool StackTest::PlugIn()
{
    QDBusMessage profile =
        QDBusMessage::createMethodCall("org.freedesktop.ModemManager1", "/org/freedesktop/ModemManager1",
                                       "org.freedesktop.ModemManager1.Test", "SetProfile");
    profile << "kova"
            << "generic" << QStringList{"abstract:" + qEnvironmentVariable("AT_NAME")};
    return QTest::qWaitFor(
        [&] { return QDBusConnection::sessionBus().call(profile).type() == QDBusMessage::ReplyMessage; }, LimitMs);
}

bool StackTest::StartGsmd()
{
    gsmd.start(KOVA_BUILD_DIR "/kova-gsmd", QStringList());
    return QTest::qWaitFor(
        [] { return QDBusConnection::sessionBus().interface()->isServiceRegistered(Names::GsmService).value(); },
        LimitMs);
}

bool StackTest::Steer(QProcess& process, const QString& action)
{
    if (action == QLatin1String("plug"))
        return PlugIn();
    if (action == QLatin1String("start"))
        return &process == &stack ? StartStack() : StartGsmd();
    if (action == QLatin1String("freeze") || action == QLatin1String("thaw"))
        return kill(pid_t(process.processId()), action == QLatin1String("thaw") ? SIGCONT : SIGSTOP) == 0;
    process.kill();
    return process.waitForFinished();
}

QDBusMessage StackTest::Request(const QString& text)
{
    const QStringList words = Words(text);
    QDBusMessage request = QDBusMessage::createMethodCall(Names::GsmService, Names::GsmObject,
                                                          GsmProxy::staticInterfaceName(), words.first());
    for (const QString& word : words.mid(1))
        words.first() == QLatin1String("ModemSetEnabled") ? request << (word == QLatin1String("true"))
                                                          : request << word;
    return request;
}

/// Repeats a query until the answer is as wanted. So is a request that has a fraction of a second at this speed, which
/// a busy machine may not meet.
bool StackTest::Ask(const QString& request, const QString& wanted)
{
    const bool isRepeated =
        request.startsWith("Is") || request.startsWith("SignalStrength") || request.startsWith("GprsSetApn");
    return QTest::qWaitFor(
               [&] {
                   const QDBusPendingCall answer = QDBusConnection::sessionBus().asyncCall(Request(request));
                   if (!QTest::qWaitFor([&] { return answer.isFinished(); }, LimitMs))
                       return false;
                   QStringList values;
                   for (const QVariant& value : answer.reply().arguments())
                       values.append(value.toString());
                   record.append("  = " + values.join(' '));
                   return values.join(' ') == wanted || !isRepeated;
               },
               LimitMs) &&
           record.last() == "  = " + wanted;
}

bool StackTest::See(const QString& step)
{
    const QString wanted = step.section(", perhaps after ", 0, 0);
    QString optional = step.section(", perhaps after ", 1);
    // The strength may be reported at any time.
    const bool any = wanted.startsWith("SignalQuality");
    const QString member = wanted.section('(', 0, 0);
    while (QTest::qWaitFor([this] { return !signalsSeen.isEmpty(); }, LimitMs)) {
        const QString seen = signalsSeen.takeFirst();
        if (seen == wanted || (wanted.endsWith("(*)") && seen.startsWith(member)))
            return true;
        if (seen == optional)
            optional.clear();
        else if (!any && !seen.startsWith("SignalQuality"))
            return false;
    }
    return false;
}

bool StackTest::Step(const QString& step)
{
    record.append(step);
    if (IsForOtherStack(step))
        return true;
    const QString own = step.section(": ", -1);
    const QString verb = own.section(' ', 0, 0);
    const QString rest = own.section(' ', 1);
    SimulatorProxy device(ControlNames::Service, ControlNames::Object, QDBusConnection::sessionBus());
    if (verb == QLatin1String("see"))
        return See(rest);
    if (verb == QLatin1String("ask"))
        return Ask(rest.section(" = ", 0, 0), rest.section(" = ", 1));
    if (verb == QLatin1String("begin"))
        return QDBusConnection::sessionBus().send(Request(rest));
    if (verb == QLatin1String("device"))
        return device.Command(rest).argumentAt<0>() == 0;
    if (verb == QLatin1String("state"))
        return QTest::qWaitFor(
            [&] { return device.State().value().value(rest.section(' ', 0, 0)).toString() == rest.section(' ', 1); },
            LimitMs);
    if (verb == QLatin1String("ping"))
        return QTest::qWaitFor(
            [this] {
                QDBusConnection::sessionBus().send(Request("PingRegistration"));
                return log.contains("The modem does not answer");
            },
            LimitMs);
    return Steer(verb == QLatin1String("stack") ? stack : gsmd, rest);
}

void StackTest::init()
{
    record.clear();
    log.clear();
    QVERIFY(StartGsmd());
    QVERIFY(See("ModemAdded(*)"));
    for (const QString& step : bringUp)
        QVERIFY2(Step(step), qPrintable(record.join('\n')));
}

/// Switches the modem off, which must cause exactly one ModemOff in each case, and ends the daemon.
void StackTest::cleanup()
{
    bool ended =
        Step("ask ModemSetEnabled false = 0") && Step("see ModemOff()") && Step("modemmanager: state modem off");
    gsmd.terminate();
    ended &= QTest::qWaitFor([this] { return gsmd.state() == QProcess::NotRunning; }, LimitMs) &&
             gsmd.exitStatus() == QProcess::NormalExit && gsmd.exitCode() == 0;
    if (!ended || QTest::currentTestFailed())
        qWarning("%s\n%s", qPrintable(record.join('\n')), log.constData());
    signalsSeen.clear();
    QVERIFY(ended);
}

void StackTest::steps_data()
{
    QTest::addColumn<QStringList>("steps");
    for (const Case& one : cases) {
        if (!IsForOtherStack(one.name))
            QTest::newRow(one.name) << one.steps;
    }
}

void StackTest::steps()
{
    QFETCH(QStringList, steps);
    for (const QString& step : steps)
        QVERIFY2(Step(step), qPrintable(step));
}

QTEST_GUILESS_MAIN(StackTest)

#include "StackTest.moc"
