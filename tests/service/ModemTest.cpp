#include "Names.h"
#include "TestBed.h"

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QTest>
#include <QThread>

class ModemTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bringUp();
    void bringUpStepByStep();
    void dataKeepsModemOn();
    void noSim();
    void registrationWatchdog();
    void signalWatchdogs();
    void dataLinkWatchdog();
    void modemDrops();
    void forcedOff();
    void refusedPowerOn();
    void daemonLeavesInMidCall();
    void daemonComesAndGoes();
    void damagedSettings();
    void onlyOneEnables_data();
    void onlyOneEnables();
    void setApn();
    void strangeDaemon_data();
    void strangeDaemon();
};

namespace
{

constexpr int MinuteMs = 60000;
constexpr int SimCheckMs = 20000;
constexpr int NearlyMs = 5000; ///< what a busy machine may need meanwhile

const QStringList powerCycle = {"-> gsm ModemSetEnabled(false)", "<- gsm ModemOff()",     "phone PhoneStatus(0)",
                                "-> gsm ModemSetEnabled(true)",  "<- gsm ModemPowered()", "phone PhoneStatus(1)"};

/// A daemon that answers every request with the same values, whatever their types should be. It lives in a thread of
/// its own, because the test waits for the service that waits for the daemon.
class StrangeDaemon : public QDBusVirtualObject
{
public:
    explicit StrangeDaemon(const QVariantList& answer) : answer(answer), bus(Connection())
    {
        moveToThread(&thread);
        thread.start();
        joined = bus.registerVirtualObject(Names::GsmObject, this) && bus.registerService(Names::GsmService);
    }
    ~StrangeDaemon() override
    {
        bus.unregisterService(Names::GsmService);
        bus.unregisterObject(Names::GsmObject);
        thread.quit();
        thread.wait();
        QDBusConnection::disconnectFromBus(bus.name());
    }

    bool Joined() const { return joined; }
    void Send(const QString& signal, const QVariantList& arguments)
    {
        QDBusMessage message = QDBusMessage::createSignal(Names::GsmObject, "com.quillmark.kova.gsminterface", signal);
        message.setArguments(arguments);
        bus.send(message);
    }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        return connection.send(message.createReply(answer));
    }

private:
    static QDBusConnection Connection()
    {
        return QDBusConnection::connectToBus(QDBusConnection::SessionBus, "strange-daemon");
    }

    const QVariantList answer;
    QThread thread;
    QDBusConnection bus;
    bool joined = false;
};

}

/// Off, powered, SIM card checked, registered: requests, signals and log lines, each in its order.
void ModemTest::bringUp()
{
    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n");
    QVERIFY(bed.StartDevice() && bed.Command("network lost") && bed.StartService());
    QVERIFY(bed.WaitForLog("Gsm modem POWERED") && bed.Command("network found"));
    QVERIFY(bed.PassSimCheck());
    QVERIFY(bed.WaitForLog("PHONE_STATUS_REGISTERED and SIM present"));

    const QStringList events = {
        "-> gsm ModemSetEnabled(false)", "-> gsm ModemSetEnabled(true)", "<- gsm ModemPowered()",
        "phone PhoneStatus(1)",          "<- gsm ModemRegistered()",     "<- gsm SignalQuality(71)",
        "-> gsm IsSimPresent()",         "phone SimPresent(true)",       "phone PhoneStatus(2)"};
    QCOMPARE(bed.Events(), events);
    const QStringList texts = {
        "4 Starting Phone Manager...",
        "4 Retrieving Gsm service",
        "4 Creating Gsm service manager",
        "4 Gsmd registered to DBus",
        "4 Creating gsm proxy",
        "4 Gsmd attached",
        "4 Gsm service manager created",
        "4 Gsm service connected",
        "4 Gsm service becomes READY",
        "4 RESET to OFF",
        "4 Gsmd->ModemSetEnabled(0) requested",
        "5 Gsmd->ModemSetEnabled(0) request success",
        "4 phoneEnabled 1, gprsEnabled 0 (forcedOff 0)",
        "2 EvaluatePhonePower() users 1, sim check try 0, sim status 0",
        "4 Gsmd->ModemSetEnabled(1) requested",
        "5 Gsmd->ModemSetEnabled(1) request success",
        "4 (RequestOn) Status=GsmPowerStatusOff => Status=GsmPowerStatusOn, requestedOn=1",
        "4 gsmPowerToRegisteredTimer connected",
        "4 gsmSignalQualityPingTimer connected",
        "4 gsmSignalQualityNotReceivedTimer connected",
        "4 gsmPPPPresenceTimer connected",
        "4 pendingOutgoingCallTimer connected",
        "4 Gsm service connected",
        "4 SmsOutController connected",
        "4 PhoneManger auto-connected",
        "4 Phone Manager running",
        "2 Gsm modem POWERED",
        "4 Gsm modem REGISTERED",
        "2 But SIM still not validated (1)..",
        "4 Gsm signal: 71",
        "5 Gsmd->IsSimPresent() request success",
        "2 Now Sim is 1 (try 0)",
        "4 ..So finally Modem is registered",
        "4 Gsm modem REGISTERED",
        "2 PHONE_STATUS_REGISTERED and SIM present",
    };
    QCOMPARE(bed.LogTexts(), texts);
}

/// A network that is slow: the SIM card is checked before the modem registers.
void ModemTest::bringUpStepByStep()
{
    TestBed bed;
    QVERIFY(bed.StartDevice() && bed.Command("network lost") && bed.StartService());
    QCOMPARE(bed.PhoneStatus(), "(0, 0, 0, 0, 0, false)");

    QCOMPARE(TestBed::StatusOf(bed.Phone().PhoneSetEnabled(true)), 0);
    QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
    QCOMPARE(bed.PhoneStatus(), "(0, 1, 1, 0, 1, false)");
    bed.PassTime(SimCheckMs);
    QCOMPARE(bed.PhoneStatus(), "(0, 1, 3, 0, 1, false)");
    QVERIFY(bed.Command("network found") && bed.WaitForLog("Gsm signal: 71"));
    QCOMPARE(bed.PhoneStatus(), "(0, 2, 3, 71, 1, false)");
    QVERIFY(bed.Command("network lost") && bed.WaitForLog("Modem POWERED but not checking sim since already 3"));
    QCOMPARE(bed.PhoneStatus(), "(0, 1, 3, 0, 1, false)"); // no signal strength without a network
    QCOMPARE(bed.Events("phone "), QStringList({"phone PhoneStatus(1)", "phone SimPresent(true)",
                                                "phone PhoneStatus(2)", "phone PhoneStatus(1)"}));

    QCOMPARE(TestBed::StatusOf(bed.Phone().PhoneSetEnabled(false)), 0);
    QVERIFY(bed.WaitForEvent("phone PhoneStatus(0)"));
    QCOMPARE(bed.PhoneStatus(), "(0, 0, 3, 0, 0, false)");
    VERIFY_IN_ORDER(bed.LogTexts(),
                    {"4 PHONE config succesfully saved (enabled=1)", "4 New PhoneEnabled 1",
                     "4 phoneEnabled 1, gprsEnabled 0 (forcedOff 0)", "2 Now Sim is 1 (try 0)",
                     "4 PHONE config succesfully saved (enabled=0)", "4 New PhoneEnabled 0",
                     "2 EvaluatePhonePower() users 0, sim check try 0, sim status 3",
                     "4 (RequestOff) Status=GsmPowerStatusOn, => Status=GsmPowerStatusOff, requestedOn=0"});
    QVERIFY(bed.Settings().contains("enabled=0"));
}

void ModemTest::dataKeepsModemOn()
{
    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n[DEVICES_SETUP]\ngprs-enabled=1\n");
    QVERIFY(bed.BringUp());
    QCOMPARE(TestBed::StatusOf(bed.Phone().PhoneSetEnabled(false)), 0);
    QCOMPARE(bed.PhoneStatus(), "(0, 2, 3, 71, 0, false)");
    QVERIFY(bed.LogTexts().contains("4 phoneEnabled 0, gprsEnabled 1 (forcedOff 0)"));
    QCOMPARE(bed.Events("-> "), QStringList());
    QVERIFY(bed.Settings().contains("gprs-enabled=1"));
}

/// Without a card the modem is power-cycled until one is put in.
void ModemTest::noSim()
{
    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n");
    QVERIFY(bed.StartDevice() && bed.Command("sim out") && bed.StartService() && bed.WaitForLog("Gsm modem POWERED"));
    bed.ForgetRecords();
    bed.PassTime(SimCheckMs);
    QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
    QCOMPARE(bed.Events(), QStringList({"-> gsm IsSimPresent()", "phone SimPresent(false)"}) + powerCycle);
    VERIFY_IN_ORDER(bed.LogTexts(), {"2 Now Sim is 0 (try 0)", "2 Rebooting the modem..",
                                     "2 EvaluatePhonePower() users 1, sim check try 1, sim status 0"});

    QVERIFY(bed.Commands({"sim in", "fault IsSimPresent error com.example.Busy times 1"}));
    bed.ForgetRecords();
    bed.PassTime(SimCheckMs);
    QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
    QCOMPARE(bed.Events("phone SimPresent"), QStringList()); // no answer, nothing to tell
    QVERIFY(bed.LogTexts().contains("2 Sim check failed (error reply) on try 1"));
    QVERIFY(bed.PassSimCheck());
    QVERIFY(bed.LogTexts().contains("2 Now Sim is 1 (try 2)"));
}

void ModemTest::registrationWatchdog()
{
    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n");
    QVERIFY(bed.StartDevice() && bed.Command("network lost") && bed.StartService());
    for (int round = 0; round < 2; ++round) {
        QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
        bed.ForgetRecords();
        bed.PassTime(3 * MinuteMs - NearlyMs);
        QCOMPARE(bed.Events("-> gsm ModemSetEnabled"), QStringList());
        bed.PassTime(NearlyMs);
        QVERIFY(bed.WaitForEvent("phone PhoneStatus(1)"));
        VERIFY_IN_ORDER(bed.Events(), powerCycle);
        QVERIFY(bed.LogTexts().contains("2 Timeout receiving REGISTERED status. Power Cycle the modem"));
    }
}

void ModemTest::signalWatchdogs()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    bed.PassTime(5 * MinuteMs - NearlyMs);
    QCOMPARE(bed.Events(), QStringList());
    bed.PassTime(NearlyMs);
    QCOMPARE(bed.Events(), QStringList{"-> gsm PingRegistration()"});
    QVERIFY(bed.LogTexts().contains("4 Didn't received a Signal Quality 3 mins.. Ping modem"));

    QVERIFY(bed.Command("signal 40") && bed.WaitForLog("Gsm signal: 40")); // both count anew
    bed.PassTime(5 * MinuteMs);
    bed.ForgetRecords();
    bed.PassTime(5 * MinuteMs - NearlyMs);
    QCOMPARE(bed.Events(), QStringList());
    bed.PassTime(NearlyMs);
    QVERIFY(bed.WaitForEvent("phone PhoneStatus(2)"));
    VERIFY_IN_ORDER(bed.Events(), powerCycle); // and the card counts as checked
    VERIFY_IN_ORDER(bed.LogTexts(), {"2 Signal Quality not received in 10 mins.. Power Cycle the modem",
                                     "2 Modem POWERED but not checking sim since already 3"});
}

void ModemTest::dataLinkWatchdog()
{
    TestBed bed;
    bed.WriteSettings("[DEVICES_SETUP]\ngprs-enabled=1\n");
    QVERIFY(bed.BringUp());
    bed.PassTime(5 * MinuteMs);
    QVERIFY(bed.Command("signal 40") && bed.WaitForLog("Gsm signal: 40"));
    bed.PassTime(5 * MinuteMs - NearlyMs);
    QCOMPARE(bed.Events("-> gsm ModemSetEnabled"), QStringList());
    bed.PassTime(NearlyMs);
    QVERIFY(bed.WaitForEvent("phone PhoneStatus(2)"));
    VERIFY_IN_ORDER(bed.Events(), powerCycle);
    QVERIFY(bed.LogTexts().contains("2 PPP Is not up after 10 minutes. Power Cycle the modem"));
}

void ModemTest::modemDrops()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    QCOMPARE(TestBed::StatusOf(bed.Phone().VoiceCallMake("+49222")), 0);
    QVERIFY(bed.WaitForEvent("phone VoiceCall(2)"));
    bed.ForgetRecords();
    QVERIFY(bed.Command("modem drop") && bed.WaitForEvent("phone PhoneStatus(2)"));
    VERIFY_IN_ORDER(bed.Events(),
                    {"<- gsm ModemOff()", "phone VoiceCall(0)", R"(-> sound StopPlay("gsmvoice", ""))",
                     "phone PhoneStatus(0)", "-> gsm ModemSetEnabled(false)", "-> gsm ModemSetEnabled(true)"});
    VERIFY_IN_ORDER(bed.LogTexts(), {"2 Gsm modem OFF", "2 Gsm phone call TERMINATED",
                                     "4 EMERGENCY GSM CALL SUCCESFULLY STOPPED", "4 RESET to OFF"});
}

void ModemTest::forcedOff()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    QCOMPARE(TestBed::StatusOf(bed.Phone().ForcePhoneOff(true)), 0);
    QVERIFY(bed.WaitForEvent("phone PhoneStatus(0)"));
    QCOMPARE(TestBed::StatusOf(bed.Phone().PhoneSetEnabled(true)), 0);
    QCOMPARE(bed.PhoneStatus(), "(0, 0, 3, 0, 1, true)");
    QCOMPARE(bed.Events("-> "), QStringList{"-> gsm ModemSetEnabled(false)"});

    QVERIFY(bed.Command("fault ModemSetEnabled status 1 times 1"));
    QCOMPARE(TestBed::StatusOf(bed.Phone().ForcePhoneOff(false)), -51);
    QCOMPARE(bed.PhoneStatus(), "(0, 0, 3, 0, 1, true)");
    QCOMPARE(TestBed::StatusOf(bed.Phone().ForcePhoneOff(false)), 0);
    QVERIFY(bed.WaitForEvent("phone PhoneStatus(2)"));
    QCOMPARE(bed.PhoneStatus().right(6), "false)");
    VERIFY_IN_ORDER(bed.LogTexts(),
                    {"2 New ForcePhoneOff state 1", "2 EvaluatePhonePower() forced OFF",
                     "4 (ForceOff=1) Status=GsmPowerStatusOn, => Status=GsmPowerStatusForcedOff, requestedOn=1",
                     "4 (RequestOn) Status=GsmPowerStatusForcedOff => Status=GsmPowerStatusForcedOff, requestedOn=1",
                     "2 New ForcePhoneOff state 0", "2 EvaluatePhonePower() Remove forced OFF",
                     "4 (ForceOff=0) Status=GsmPowerStatusForcedOff, => Status=GsmPowerStatusOn, requestedOn=1"});

    // Nobody wants the modem at the release: it stays off.
    QCOMPARE(TestBed::StatusOf(bed.Phone().ForcePhoneOff(true)), 0);
    QCOMPARE(TestBed::StatusOf(bed.Phone().PhoneSetEnabled(false)), 0);
    bed.ForgetRecords();
    QCOMPARE(TestBed::StatusOf(bed.Phone().ForcePhoneOff(false)), 0);
    QCOMPARE(bed.Events("-> "), QStringList());
}

/// A daemon that answers too late may power the modem all the same: the watchdog runs.
void ModemTest::refusedPowerOn()
{
    TestBed bed;
    QVERIFY(bed.StartDevice() && bed.StartService());
    QVERIFY(bed.Command("fault ModemSetEnabled status 1 times 1"));
    QCOMPARE(TestBed::StatusOf(bed.Phone().PhoneSetEnabled(true)), -51);
    QCOMPARE(bed.PhoneStatus(), "(0, 0, 1, 0, 1, false)");
    bed.PassTime(3 * MinuteMs);
    QVERIFY(bed.LogTexts().contains("2 Timeout receiving REGISTERED status. Power Cycle the modem"));
    QCOMPARE(TestBed::StatusOf(bed.Phone().PhoneSetEnabled(true)), 0);
    QVERIFY(bed.PassSimCheck());
}

void ModemTest::daemonLeavesInMidCall()
{
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Command("fault Call silent times 1"));
    const QDBusPendingCall call = bed.Phone().VoiceCallMake("+49222");
    QVERIFY(bed.WaitForEvent("-> gsm Call"));
    QVERIFY(bed.Command("daemon leave"));
    QCOMPARE(TestBed::StatusOf(call), -55);
    QVERIFY(bed.WaitForLog("EMERGENCY GSM CALL SUCCESFULLY STOPPED"));
    VERIFY_IN_ORDER(bed.LogTexts(), {"2 Gsmd->Call(+49222) request failed", "1 Error making call (Call)",
                                     "2 Gsmd unregistered from DBus", "2 Destroying gsm proxy", "2 Gsmd detached",
                                     "2 Gsmd service becomes FAILED", "2 Hangup after failure",
                                     "2 Gsm phone call TERMINATED", "4 EMERGENCY GSM CALL SUCCESFULLY STOPPED"});
    // What the modem last was is known until the daemon is back.
    QCOMPARE(bed.PhoneStatus(), "(0, 2, 3, 71, 1, false)");
    bed.ForgetRecords();
    QVERIFY(bed.Command("daemon return") && bed.PassSimCheck());
    QCOMPARE(TestBed::StatusOf(bed.Phone().VoiceCallMake("+49222")), 0);
}

void ModemTest::daemonComesAndGoes()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    for (int round = 1; round <= 30; ++round) {
        QVERIFY(bed.Command("daemon leave") && bed.WaitForLog("Gsmd service becomes FAILED", round));
        QVERIFY(bed.Command("daemon return") && bed.WaitForLog("Gsm service becomes READY", round));
    }
    QTRY_COMPARE(bed.DeviceState()["modem"].toString(), "registered");
    bed.PassTime(SimCheckMs);
    QVERIFY(bed.WaitForEvent("phone PhoneStatus(2)"));
    QCOMPARE(bed.StopService(), 0);
}

/// Settings that can't be read count as off, and are never overwritten.
void ModemTest::damagedSettings()
{
    TestBed bed;
    bed.WriteSettings("[PHONE\nenabled=1\n");
    QVERIFY(bed.StartDevice() && bed.StartService());
    QCOMPARE(TestBed::StatusOf(bed.Phone().PhoneSetEnabled(true)), 0);
    QCOMPARE(bed.Events("-> "), QStringList{"-> gsm ModemSetEnabled(false)"});
    VERIFY_IN_ORDER(bed.LogTexts(), {"1 Can't save PHONE config (invalid Configuration proxy)", "4 New PhoneEnabled 1",
                                     "1 Can't read PHONE config (invalid Configuration proxy)",
                                     "1 Can't read DEVICES_SETUP config (invalid Configuration proxy)",
                                     "4 phoneEnabled 0, gprsEnabled 0 (forcedOff 0)"});
    QCOMPARE(bed.Settings(), "[PHONE\nenabled=1\n");
}

void ModemTest::onlyOneEnables_data()
{
    QTest::addColumn<QString>("settings");
    QTest::addColumn<QString>("users");
    QTest::newRow("words") << "[PHONE]\nenabled=true\n[DEVICES_SETUP]\ngprs-enabled=yes\n"
                           << "users 0";
    QTest::newRow("01") << "[PHONE]\nenabled=01\n"
                        << "users 0";
    QTest::newRow("none") << ""
                          << "users 0";
    QTest::newRow("both") << "[PHONE]\nenabled=1\n[DEVICES_SETUP]\ngprs-enabled=1\n"
                          << "users 2";
}

void ModemTest::onlyOneEnables()
{
    QFETCH(QString, settings);
    QFETCH(QString, users);
    TestBed bed;
    bed.WriteSettings(settings.toUtf8());
    QVERIFY(bed.StartDevice() && bed.StartService());
    QVERIFY(bed.WaitForLog("EvaluatePhonePower() " + users));
}

void ModemTest::setApn()
{
    TestBed bed;
    QVERIFY(bed.StartDevice() && bed.StartService());
    const auto set = [&] { return TestBed::StatusOf(bed.Phone().SetApn("web", "me", "secret")); };
    QCOMPARE(set(), -57);
    bed.WriteSettings("[PHONE]\nenabled=1\n"); // by another program: seen at the next decision, which this is
    QCOMPARE(set(), -57);
    QVERIFY(bed.PassSimCheck());
    bed.ForgetRecords();
    QCOMPARE(set(), 0);
    QVERIFY(bed.Command("fault GprsSetApn status 2"));
    QCOMPARE(set(), -54);
    const QString request = R"(-> gsm GprsSetApn("web", "me", "secret"))";
    QCOMPARE(bed.Events("-> "), QStringList({request, request}));
    QVERIFY(bed.LogTexts().contains("2 SetApn(web)"));
}

void ModemTest::strangeDaemon_data()
{
    QTest::addColumn<QVariantList>("answer");
    QTest::addColumn<QString>("powered");
    QTest::addColumn<QString>("checked");
    const QString failed = "Gsmd->ModemSetEnabled(1) request failed";
    const QString noAnswer = "Sim check failed (error reply)";
    QTest::newRow("nothing") << QVariantList() << failed << noAnswer;
    QTest::newRow("text") << QVariantList{"0"} << failed << noAnswer;
    QTest::newRow("unsigned") << QVariantList{0U, true} << failed << noAnswer;
    QTest::newRow("map") << QVariantList{QVariantMap{{"status", 0}}, 0, "more"} << failed << noAnswer;
    QTest::newRow("array beside the status")
        << QVariantList{0, QVariant::fromValue(QList<int>{1})} << "Gsmd->ModemSetEnabled(1) request success"
        << "Now Sim is 0";
}

/// Answers and signals of wrong types do no harm, and the next right daemon works.
void ModemTest::strangeDaemon()
{
    QFETCH(QVariantList, answer);
    QFETCH(QString, powered);
    QFETCH(QString, checked);
    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n");
    QVERIFY(bed.StartDevice() && bed.Command("daemon leave") && bed.StartService());
    {
        StrangeDaemon daemon(answer);
        QVERIFY(daemon.Joined());
        QVERIFY(bed.WaitForLog(powered));
        for (const char* signal : {"CallIncoming", "CallAnswered", "CallRejected", "MessageReceived", "SignalQuality"})
            daemon.Send(signal, {"text"});
        daemon.Send("MessageReceived", {QVariantMap(), "text"});
        daemon.Send("SignalQuality", {71U});
        daemon.Send("ModemPowered", {});
        QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
        bed.PassTime(SimCheckMs);
        QVERIFY(bed.WaitForLog(checked));
        QCOMPARE(bed.Events("phone ").filter("SimPresent(true)"), QStringList());
    }
    QVERIFY(bed.WaitForLog("Gsmd detached"));
    bed.ForgetRecords();
    QVERIFY(bed.Command("daemon return") && bed.PassSimCheck());
}

QTEST_GUILESS_MAIN(ModemTest)

#include "ModemTest.moc"
