#include "GsmDaemon.h"

#include "GsmAdaptor.h"
#include "GsmProxy.h"
#include "Names.h"

#include <LogInterface.h>
#include <QDBusConnection>
#include <QTest>

Q_DECL_EXPORT LogInterface* _logInterface = nullptr;

/// A stack that acts only when the test tells it to.
class ScriptedStack : public ModemStack
{
public:
    QString ModemPath() const override { return QStringLiteral("/modem"); }
    bool IsOn() const override { return on; }
    bool IsRegistered() const override { return registered; }
    std::optional<bool> SimPresent() const override { return sim; }
    std::optional<int> Strength() const override { return strength; }

    bool TakePowerStep(bool wanted, const Done& done) override
    {
        if (wanted != on)
            Record(wanted ? "power on" : "power off", done);
        return wanted != on;
    }
    void Ping(const Done& done) override { Record("ping", done); }
    void Dial(const QString& number, const std::function<void(const QString&)>& done) override
    {
        Record("dial " + number, [done, number](bool success) { done(success ? "/call" + number : QString()); });
    }
    void Answer(const QString& id, const Done& done) override { Record("answer " + id, done); }
    void Hangup(const QString& id, const Done& done) override { Record("hang up " + id, done); }
    void SendSms(const QString& recipient, const QString&, const Done& done) override
    {
        Record("sms " + recipient, done);
    }
    void SetApn(const Apn& apn, const Done& done) override { Record("apn " + apn.name, done); }
    bool CanConnect() const override { return registered; }
    void Connect(const Apn& apn, const Done& done) override { Record("link " + apn.name, done); }

    /// Carries out the recorded request, or refuses it. @return whether there was one.
    bool Do(const QString& request, bool success = true)
    {
        if (!pending.contains(request))
            return false;
        if (success && request.startsWith("power"))
            SetPower(request.endsWith("on"));
        pending.take(request)(success);
        return true;
    }
    void SetPower(bool next)
    {
        on = next;
        registered = registered && on;
        Q_EMIT ModemChanged();
    }
    void SetRegistered(bool next)
    {
        registered = next;
        Q_EMIT RegistrationChanged();
    }

    bool on = false;
    bool registered = false;
    std::optional<bool> sim;
    std::optional<int> strength = 64;
    QStringList requests;

private:
    void Record(const QString& request, const Done& done)
    {
        requests.append(request);
        pending.insert(request, done);
    }

    QMap<QString, Done> pending;
};

class GsmDaemonTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void powerCycle();
    void oneModemOffEach();
    void offAndOnInQuickSuccession();
    void modemGoesByItself();
    void stackLeaves();
    void registration();
    void pingAsksTheModem();
    void outgoingCall_data();
    void outgoingCall();
    void hangUpBeforeTheCallIsKnown();
    void hangUpAll();
    void dialWaitsForTheHangup();
    void incomingCall();
    void strangersInTheStack();
    void lateAnswers();
    void stopHangsUp();

    void OnSignal(const QDBusMessage& message);

private:
    void Attach();
    void BringUp();
    /// Calls a method of the daemon over the bus. The answer is recorded among the signals.
    void Ask(const QString& method, const QVariantList& arguments = {});
    /// Returns all answers and signals since the last call, in order.
    QString Said();
    QString Asked() { return std::exchange(stack->requests, {}).join(", "); }
    void ChangeCall(const QString& id, StackCall::State state, const QString& number = QStringLiteral("1"))
    {
        Q_EMIT stack->CallChanged({id, state, number});
    }

    std::unique_ptr<GsmDaemon> daemon;
    ScriptedStack* stack = nullptr;
    QStringList said;
    int unanswered = 0;
    QDBusConnection client = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "client");
};

void GsmDaemonTest::initTestCase()
{
    _logInterface = new LogInterface(QStringLiteral("/log"));
    QVERIFY(client.connect(QString(), Names::GsmObject, GsmProxy::staticInterfaceName(), QString(), this,
                           SLOT(OnSignal(QDBusMessage))));
}

void GsmDaemonTest::init()
{
    daemon = std::make_unique<GsmDaemon>();
    new GsmAdaptor(daemon.get());
    QDBusConnection bus = QDBusConnection::sessionBus();
    QVERIFY(bus.registerObject(Names::GsmObject, daemon.get()) && bus.registerService(Names::GsmService));
    Attach();
    Said();
}

void GsmDaemonTest::cleanup()
{
    QDBusConnection::sessionBus().unregisterObject(Names::GsmObject);
    daemon.reset();
    unanswered = 0;
}

void GsmDaemonTest::Attach()
{
    auto scripted = std::make_unique<ScriptedStack>();
    stack = scripted.get();
    daemon->Attach(std::move(scripted));
}

void GsmDaemonTest::BringUp()
{
    Ask("ModemSetEnabled", {true});
    Said();
    stack->Do("power on");
    stack->SetRegistered(true);
    Said();
    stack->requests.clear();
}

void GsmDaemonTest::Ask(const QString& method, const QVariantList& arguments)
{
    QDBusMessage request =
        QDBusMessage::createMethodCall(Names::GsmService, Names::GsmObject, GsmProxy::staticInterfaceName(), method);
    request.setArguments(arguments);
    auto* watcher = new QDBusPendingCallWatcher(client.asyncCall(request), this);
    ++unanswered;
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, method, watcher] {
        --unanswered;
        said.append(method + QStringLiteral("=%1").arg(watcher->reply().arguments().value(0, -1).toInt()));
        watcher->deleteLater();
    });
}

void GsmDaemonTest::OnSignal(const QDBusMessage& message)
{
    const QVariant argument = message.arguments().value(0);
    const QVariantMap info = qdbus_cast<QVariantMap>(argument);
    const QString text = !info.isEmpty()                               ? info.value("LineIdentification").toString()
                         : argument.userType() == qMetaTypeId<uchar>() ? QString::number(argument.toUInt())
                                                                       : argument.toString();
    said.append(message.member() + (text.isEmpty() ? QString() : '(' + text + ')'));
}

QString GsmDaemonTest::Said()
{
    // Signals under way arrive before the answer to a further request, queued ones before the answer to a second.
    for (int i = 0; i < 2; ++i) {
        Ask("ModemGetStatus");
        if (!QTest::qWaitFor([this] { return said.contains("ModemGetStatus=0"); }))
            return QStringLiteral("nothing");
        said.removeAll("ModemGetStatus=0");
    }
    return std::exchange(said, {}).join(' ');
}

/// Each step is signalled after the answer, and the strength once the modem is registered.
void GsmDaemonTest::powerCycle()
{
    Ask("ModemSetEnabled", {true});
    QCOMPARE(Said(), "ModemSetEnabled=0");
    QVERIFY(stack->Do("power on"));
    QCOMPARE(Said(), "ModemPowered");
    Ask("IsSimPresent");
    QCOMPARE(Said(), "IsSimPresent=1"); // not known yet
    stack->sim = false;
    Ask("IsSimPresent");
    QCOMPARE(Said(), "IsSimPresent=0");
    stack->SetRegistered(true);
    QCOMPARE(Said(), "ModemRegistered SignalQuality(64)");
    Ask("ModemSetEnabled", {false});
    Said();
    QVERIFY(stack->Do("power off"));
    QCOMPARE(Said(), "ModemOff");
    QCOMPARE(Asked(), "power on, power off");
}

/// A failed power-on is also followed by one, a power-off without a power-on by none.
void GsmDaemonTest::oneModemOffEach()
{
    Ask("ModemSetEnabled", {false});
    QCOMPARE(Said(), "ModemSetEnabled=0");
    for (int i = 0; i < 2; ++i) {
        Ask("ModemSetEnabled", {true});
        Said();
        QVERIFY(stack->Do("power on", false));
        Ask("ModemSetEnabled", {false});
        QCOMPARE(Said(), "ModemSetEnabled=0 ModemOff");
    }
    Ask("ModemSetEnabled", {true});
    Said();
    Ask("ModemSetEnabled", {false});
    QCOMPARE(Said(), "ModemSetEnabled=0"); // the stack is still powering on
    QVERIFY(stack->Do("power on"));
    QVERIFY(stack->Do("power off"));
    QCOMPARE(Said(), "ModemOff");
}

void GsmDaemonTest::offAndOnInQuickSuccession()
{
    BringUp();
    Ask("ModemSetEnabled", {false});
    Ask("ModemSetEnabled", {true});
    Said();
    QVERIFY(stack->Do("power off"));
    QCOMPARE(Said(), "");
    QVERIFY(stack->Do("power on"));
    stack->SetRegistered(true);
    QCOMPARE(Said(), "ModemPowered ModemRegistered SignalQuality(64)");

    for (const bool on : {false, true, false})
        Ask("ModemSetEnabled", {on});
    Said();
    QVERIFY(stack->Do("power off"));
    QCOMPARE(Said(), "ModemOff");
    QCOMPARE(Asked(), "power off, power on, power off");
}

/// The modem stays off until the service asks again. Calls are dropped without a signal.
void GsmDaemonTest::modemGoesByItself()
{
    BringUp();
    ChangeCall("/in", StackCall::StateIncoming, "2");
    Ask("SendSms", {"3", "text"});
    Said();
    stack->SetPower(false);
    QCOMPARE(Said(), "SendSms=2 ModemOff");
    Ask("CallAnswer");
    QCOMPARE(Said(), "CallAnswer=1");
    stack->SetPower(true);
    stack->SetPower(false);
    Ask("ModemSetEnabled", {false});
    QCOMPARE(Said(), "ModemSetEnabled=0");
    Ask("ModemSetEnabled", {true});
    QCOMPARE(Said(), "ModemSetEnabled=0"); // The power-on is delayed, since the modem did not stay on.
    QCOMPARE(Asked(), "sms 3");
}

void GsmDaemonTest::stackLeaves()
{
    BringUp();
    daemon->Detach();
    QCOMPARE(Said(), "ModemOff");
    Ask("ModemSetEnabled", {true});
    Ask("Call", {"4"});
    QCOMPARE(Said(), "ModemSetEnabled=0 Call=0 CallRejected(4)");
    Ask("ModemSetEnabled", {false});
    QCOMPARE(Said(), "ModemSetEnabled=0 ModemOff");
    Ask("ModemSetEnabled", {true});
    Said();
    Attach();
    QVERIFY(stack->Do("power on"));
    QCOMPARE(Said(), "ModemAdded(/modem) ModemPowered");
}

/// A lost network is reported as ModemPowered alone. Without one no strength is sent, so that the service's watchdog
/// works.
void GsmDaemonTest::registration()
{
    BringUp();
    stack->SetRegistered(false);
    stack->strength = 10;
    Q_EMIT stack->StrengthChanged();
    Ask("PingRegistration");
    QCOMPARE(Said(), "ModemPowered PingRegistration=1");
    stack->SetRegistered(true);
    stack->strength = 1000;
    Q_EMIT stack->StrengthChanged();
    QCOMPARE(Said(), "ModemRegistered SignalQuality(10) SignalQuality(100)");
    QCOMPARE(Asked(), "");
}

void GsmDaemonTest::pingAsksTheModem()
{
    BringUp();
    Ask("PingRegistration");
    QCOMPARE(Said(), "PingRegistration=0");
    QVERIFY(stack->Do("ping", false));
    QCOMPARE(Said(), "");
    Ask("PingRegistration");
    Said();
    QVERIFY(stack->Do("ping"));
    QCOMPARE(Said(), "SignalQuality(64)");
}

void GsmDaemonTest::outgoingCall_data()
{
    QTest::addColumn<bool>("answered");
    QTest::addColumn<bool>("hungUp");
    QTest::addColumn<QString>("told");
    QTest::newRow("answered") << true << false << "CallAnswered(1) CallTerminated(1)";
    QTest::newRow("answered and hung up") << true << true << "CallAnswered(1) CallTerminated(1)";
    QTest::newRow("busy") << false << false << "CallRejected(1)";
    QTest::newRow("hung up") << false << true << "CallRejected(1)"; // so that an emergency loop continues
}

void GsmDaemonTest::outgoingCall()
{
    QFETCH(bool, answered);
    QFETCH(bool, hungUp);
    BringUp();
    Ask("Call", {"1"});
    Ask("Call", {"2"});
    QCOMPARE(Said(), "Call=0 Call=1");
    QVERIFY(stack->Do("dial 1"));
    if (answered)
        ChangeCall("/call1", StackCall::StateActive);
    QString told = Said();
    if (hungUp) {
        Ask("CallHangup");
        QCOMPARE(Said(), "CallHangup=0");
        QVERIFY(answered || stack->Do("hang up /call1", false)); // then again
        QVERIFY(QTest::qWaitFor([&] { return stack->Do("hang up /call1"); }));
    }
    ChangeCall("/call1", StackCall::StateEnded);
    told += (told.isEmpty() ? "" : " ") + Said();
    QTEST(told, "told");
}

void GsmDaemonTest::hangUpBeforeTheCallIsKnown()
{
    BringUp();
    for (const QString& request : {QString("CallHangup"), QString("CallHangupAll")}) {
        Ask("Call", {"1"});
        Ask(request);
        QCOMPARE(Said(), "Call=0 " + request + "=0");
        ChangeCall("/call1", StackCall::StateDialling); // before the answer
        QVERIFY(stack->Do("dial 1"));
        ChangeCall("/call1", StackCall::StateActive); // too late
        QVERIFY(stack->Do("hang up /call1"));
        ChangeCall("/call1", StackCall::StateEnded);
        QCOMPARE(Said(), request.endsWith("All") ? "CallTerminated(1)" : "CallRejected(1)");
        QCOMPARE(Asked(), "dial 1, hang up /call1");
    }
}

/// No call is rejected, so that an emergency loop ends, too.
void GsmDaemonTest::hangUpAll()
{
    BringUp();
    Ask("Call", {"1"});
    Said();
    QVERIFY(stack->Do("dial 1"));
    Ask("CallHangupAll");
    Said();
    ChangeCall("/call1", StackCall::StateEnded);
    Ask("CallHangupAll");
    QCOMPARE(Said(), "CallTerminated(1) CallHangupAll=0");
}

void GsmDaemonTest::dialWaitsForTheHangup()
{
    BringUp();
    ChangeCall("/in", StackCall::StateIncoming, "2");
    Ask("CallHangupAll");
    Ask("Call", {"1"});
    QCOMPARE(Said(), "CallIncoming(2) CallHangupAll=0 Call=0");
    QCOMPARE(Asked(), "hang up /in");
    ChangeCall("/in", StackCall::StateEnded);
    QCOMPARE(Said(), "CallTerminated(2)");
    QCOMPARE(Asked(), "dial 1");
}

/// A second caller finds the line busy. The request to answer succeeds only when the modem has answered.
void GsmDaemonTest::incomingCall()
{
    BringUp();
    ChangeCall("/first", StackCall::StateIncoming, "2");
    ChangeCall("/second", StackCall::StateWaiting, "3");
    QCOMPARE(Said(), "CallIncoming(2)");
    QCOMPARE(Asked(), "hang up /second");
    ChangeCall("/second", StackCall::StateEnded);
    Ask("CallAnswer");
    QCOMPARE(Said(), "");
    QVERIFY(stack->Do("answer /first"));
    ChangeCall("/first", StackCall::StateActive, "2");
    Ask("CallAnswer");
    QCOMPARE(Said(), "CallAnswer=0 CallAnswer=1");
    ChangeCall("/first", StackCall::StateEnded);
    QCOMPARE(Said(), "CallTerminated(2)");

    ChangeCall("/third", StackCall::StateIncoming, "4");
    Ask("CallAnswer");
    Said();
    stack->requests.clear();
    QVERIFY(stack->Do("answer /third", false));
    QCOMPARE(Said(), "CallAnswer=2");
    QCOMPARE(Asked(), "hang up /third"); // the service regards it as ended
}

/// Calls left from before a restart, or made by another program.
void GsmDaemonTest::strangersInTheStack()
{
    ChangeCall("/left", StackCall::StateActive);
    QCOMPARE(Asked(), "hang up /left");
    QVERIFY(stack->Do("hang up /left", false));
    daemon->Detach();
    Ask("CallHangup");
    QCOMPARE(Said(), "CallHangup=0");
    Attach();
    stack->SetPower(true);
    ChangeCall("/foreign", StackCall::StateActive);
    QCOMPARE(Asked(), "hang up /foreign");
    stack->SetPower(false); // The call is gone, although its hang-up was not answered.
    Ask("Call", {"1"});
    QCOMPARE(Said(), "ModemAdded(/modem) Call=0");
    QCOMPARE(Asked(), "dial 1");
    ChangeCall("/caller", StackCall::StateIncoming); // while the modem is not wanted
    QCOMPARE(Said(), "");
    QCOMPARE(Asked(), "");
}

void GsmDaemonTest::lateAnswers()
{
    BringUp();
    Ask("SendSms", {"1", "text"});
    Ask("GprsSetApn", {"internet", "", ""});
    QCOMPARE(Said(), "");
    QVERIFY(stack->Do("apn internet"));
    QVERIFY(stack->Do("sms 1", false));
    QCOMPARE(Said(), "GprsSetApn=0 SendSms=2");
    stack->SetRegistered(false);
    stack->SetRegistered(true);
    QCOMPARE(Asked(), "sms 1, apn internet, link internet, link internet");

    for (int i = 0; i < 1000; ++i)
        Ask("SendSms", {QString::number(i), "text"});
    QTRY_VERIFY(said.count("SendSms=1") > 900); // a flood is refused
    stack->SetPower(false);
    QTRY_COMPARE(unanswered, 0);
}

void GsmDaemonTest::stopHangsUp()
{
    BringUp();
    Ask("Call", {"1"});
    Said();
    QVERIFY(stack->Do("dial 1"));
    bool stopped = false;
    connect(daemon.get(), &GsmDaemon::Stopped, this, [&stopped] { stopped = true; });
    daemon->Stop();
    QVERIFY(!stopped && Asked().endsWith("hang up /call1"));
    ChangeCall("/call1", StackCall::StateEnded);
    QVERIFY(stopped);
}

QTEST_GUILESS_MAIN(GsmDaemonTest)

#include "GsmDaemonTest.moc"
