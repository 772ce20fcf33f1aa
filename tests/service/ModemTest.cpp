#include "FakePeers.h"
#include "TestBed.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <tuple>

namespace
{

constexpr int MinuteMs = 60000;
constexpr int SimCheckMs = 20000;
constexpr int NearlyMs = 5000; ///< margin for a busy machine
constexpr char DataEnabled[] = "[DEVICES_SETUP]\ngprs-enabled=1\n";

const QStringList powerCycle = {"-> gsm ModemSetEnabled(false)", "<- gsm ModemOff()",     "phone PhoneStatus(0)",
                                "-> gsm ModemSetEnabled(true)",  "<- gsm ModemPowered()", "phone PhoneStatus(1)"};

}

/// The power decision, the modem's life from power-up to registration, the watchdogs, and the daemon's presence.
class ModemTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// The requests, signals and log lines from off to registered, each in order.
    void bringUp()
    {
        TestBed bed;
        QVERIFY(bed.Start(TestBed::PhoneEnabled, {"network lost"}));
        QVERIFY(bed.WaitForLog("Gsm modem POWERED") && bed.Command("network found") && bed.PassSimCheck());
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

    /// With a slow network, the SIM card is checked before the modem registers.
    void bringUpStepByStep()
    {
        TestBed bed;
        QVERIFY(bed.Start({}, {"network lost"}));
        QCOMPARE(bed.PhoneStatus(), "(0, 0, 0, 0, 0, false)");

        QCOMPARE(bed.Ask("PhoneSetEnabled", true), 0);
        QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
        // A network that is found and lost again lets the modem report its power twice. The card is checked once.
        QVERIFY(bed.Command("network found") && bed.WaitForLog("Gsm modem REGISTERED"));
        QVERIFY(bed.Command("network lost") && bed.WaitForLog("Gsm modem POWERED", 2));
        bed.PassTime(SimCheckMs - NearlyMs);
        QCOMPARE(bed.PhoneStatus(), "(0, 1, 1, 0, 1, false)");
        bed.PassTime(NearlyMs);
        QCOMPARE(bed.PhoneStatus(), "(0, 1, 3, 0, 1, false)");
        QVERIFY(bed.Command("network found") && bed.WaitForLog("Gsm signal: 71", 2));
        QCOMPARE(bed.PhoneStatus(), "(0, 2, 3, 71, 1, false)");
        QVERIFY(bed.Command("network lost") && bed.WaitForLog("Modem POWERED but not checking sim since already 3"));
        QCOMPARE(bed.PhoneStatus(), "(0, 1, 3, 0, 1, false)"); // no signal strength without a network

        QCOMPARE(bed.Ask("PhoneSetEnabled", false), 0);
        QVERIFY(bed.WaitForEvent("phone PhoneStatus(0)"));
        QCOMPARE(bed.PhoneStatus(), "(0, 0, 3, 0, 0, false)");
        QCOMPARE(bed.Events("phone "),
                 QStringList({"phone PhoneStatus(1)", "phone PhoneStatus(1)", "phone SimPresent(true)",
                              "phone PhoneStatus(2)", "phone PhoneStatus(1)", "phone PhoneStatus(0)"}));
        VERIFY_IN_ORDER(bed.LogTexts(), {"4 PHONE config succesfully saved (enabled=1)", "4 New PhoneEnabled 1",
                                         "2 Now Sim is 1 (try 0)", "4 PHONE config succesfully saved (enabled=0)",
                                         "2 EvaluatePhonePower() users 0, sim check try 0, sim status 3"});
        QVERIFY(bed.Settings().contains("enabled=0"));
    }

    /// Only "1" counts as on. Invalid settings count as off and are never overwritten.
    void users()
    {
        const std::tuple<QByteArray, const char*, const char*> rows[] = {
            {"[PHONE]\nenabled=true\n[DEVICES_SETUP]\ngprs-enabled=yes\n", "users 0", "phoneEnabled 1, gprsEnabled 0"},
            {"[PHONE]\nenabled=01\n", "users 0", "phoneEnabled 1, gprsEnabled 0"},
            {QByteArray(TestBed::PhoneEnabled) + DataEnabled, "users 2", "phoneEnabled 1, gprsEnabled 1"},
            {"[PHONE\nenabled=1\n", "users 0", "phoneEnabled 0, gprsEnabled 0"},
        };
        for (const auto& [settings, users, enabled] : rows) {
            TestBed bed;
            QVERIFY(bed.Start(settings) && bed.WaitForLog(QString("EvaluatePhonePower() ") + users));
            QCOMPARE(bed.Ask("PhoneSetEnabled", true), 0);
            QVERIFY(bed.WaitForLog(enabled));
            if (settings.startsWith("[PHONE\n")) {
                VERIFY_IN_ORDER(bed.LogTexts(),
                                {"1 Can't save PHONE config (invalid Configuration proxy)", "4 New PhoneEnabled 1",
                                 "1 Can't read PHONE config (invalid Configuration proxy)",
                                 "1 Can't read DEVICES_SETUP config (invalid Configuration proxy)"});
                QCOMPARE(bed.Settings(), settings);
            }
        }
    }

    /// Without a SIM card the modem is power-cycled until there is one.
    void noSim()
    {
        TestBed bed;
        QVERIFY(bed.Start(TestBed::PhoneEnabled, {"sim out"}) && bed.WaitForLog("Gsm modem POWERED"));
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
        QCOMPARE(bed.Events("phone SimPresent"), QStringList()); // not checked, so not reported
        QVERIFY(bed.LogTexts().contains("2 Sim check failed (error reply) on try 1"));
        QVERIFY(bed.PassSimCheck() && bed.WaitForLog("Now Sim is 1 (try 2)"));
        QCOMPARE(bed.Ask("PhoneSetEnabled", true), 0);
        QVERIFY(bed.LogTexts().contains("2 EvaluatePhonePower() users 1, sim check try 0, sim status 3"));
    }

    void watchdogs_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<int>("after"); ///< minutes
        QTest::addColumn<bool>("signalInTheMiddle");
        QTest::addColumn<QString>("log");
        QTest::newRow("registration") << QByteArray(TestBed::PhoneEnabled) << 3 << false
                                      << "2 Timeout receiving REGISTERED status. Power Cycle the modem";
        QTest::newRow("signal") << QByteArray(TestBed::PhoneEnabled) << 10 << false
                                << "2 Signal Quality not received in 10 mins.. Power Cycle the modem";
        QTest::newRow("data link") << QByteArray(DataEnabled) << 10 << true
                                   << "2 PPP Is not up after 10 minutes. Power Cycle the modem";
    }

    /// A watchdog fires neither too early nor too late, and it does so again.
    void watchdogs()
    {
        QFETCH(QByteArray, settings);
        QFETCH(int, after);
        QFETCH(bool, signalInTheMiddle);
        QFETCH(QString, log);
        const bool registered = after > 3;
        TestBed bed;
        bed.WriteSettings(settings);
        if (registered)
            QVERIFY(bed.BringUp());
        else
            QVERIFY(bed.Start(settings, {"network lost"}) && bed.WaitForLog("Gsm modem POWERED"));

        for (int round = 0; round < 2; ++round) {
            bed.ForgetRecords();
            bed.PassTime(after * MinuteMs / 2);
            if (signalInTheMiddle)
                QVERIFY(bed.Command("signal 40") && bed.WaitForLog("Gsm signal: 40"));
            bed.PassTime(after * MinuteMs / 2 - NearlyMs);
            QCOMPARE(bed.Events("-> gsm ModemSetEnabled"), QStringList());
            bed.PassTime(NearlyMs);
            // A card that was found once is not checked again.
            QVERIFY(bed.WaitForLog(registered ? "Gsm signal: " : "Gsm modem POWERED", signalInTheMiddle ? 2 : 1));
            VERIFY_IN_ORDER(bed.Events(), powerCycle);
            QVERIFY(bed.LogTexts().contains(log));
        }
        if (signalInTheMiddle) { // The data link's watchdog runs on while the modem is off.
            bed.PassTime(8 * MinuteMs);
            bed.ForgetRecords();
            QVERIFY(bed.Commands({"network lost", "modem drop"}) && bed.WaitForLog("Gsm modem POWERED"));
            bed.PassTime(2 * MinuteMs);
            QVERIFY(bed.LogTexts().contains(log));
        }
    }

    /// A failed look-up of the data link has no consequence, and the next one tries again.
    void dataLinkUnknown()
    {
        TestBed bed;
        QTemporaryDir folder;
        QVERIFY(bed.CopyService(folder.path()));
        bed.WriteSettings(DataEnabled);
        QVERIFY(bed.BringUp());
        const auto passTenMinutes = [&] {
            for (const char* signal : {"41", "42"}) {
                bed.ForgetRecords();
                bed.PassTime(5 * MinuteMs - NearlyMs);
                QCOMPARE(bed.Events("-> gsm ModemSetEnabled"), QStringList());
                QVERIFY(bed.Command(QString("signal ") + signal) && bed.WaitForLog("Gsm signal: "));
                bed.PassTime(NearlyMs);
            }
        };
        passTenMinutes();
        QCOMPARE(bed.LogTexts().filter("2 Can't look up network interfaces: libphone_link.so.").size(), 1);
        const QStringList modules = QDir(KOVA_BUILD_DIR).entryList({"libphone_link.so.*"});
        for (const QString& module : modules)
            QVERIFY(QFile::copy(KOVA_BUILD_DIR "/" + module, folder.filePath(module)));
        passTenMinutes();
        QVERIFY(bed.LogTexts().contains("2 PPP Is not up after 10 minutes. Power Cycle the modem"));
    }

    void ping()
    {
        TestBed bed;
        QVERIFY(bed.BringUp());
        for (int round = 0; round < 2; ++round) {
            bed.PassTime(5 * MinuteMs - NearlyMs);
            QCOMPARE(bed.Events("-> "), QStringList());
            bed.PassTime(NearlyMs);
            QCOMPARE(bed.Events("-> "), QStringList{"-> gsm PingRegistration()"});
            QVERIFY(bed.LogTexts().contains("4 Didn't received a Signal Quality 3 mins.. Ping modem"));
            QVERIFY(bed.Command("signal 40") && bed.WaitForLog("Gsm signal: 40")); // The timer starts anew.
            bed.ForgetRecords();
        }
    }

    /// The data setting alone keeps the modem on. Forcing off overrides both settings.
    void forcedOff()
    {
        TestBed bed;
        bed.WriteSettings(QByteArray(TestBed::PhoneEnabled) + DataEnabled);
        QVERIFY(bed.BringUp());
        QCOMPARE(bed.Ask("PhoneSetEnabled", false), 0);
        QCOMPARE(bed.PhoneStatus(), "(0, 2, 3, 71, 0, false)");
        QVERIFY(bed.LogTexts().contains("4 phoneEnabled 0, gprsEnabled 1 (forcedOff 0)"));
        bed.PassTime(3 * MinuteMs); // A decision that changes nothing starts no watchdog.
        QCOMPARE(bed.Events("-> "), QStringList());

        QCOMPARE(bed.Ask("ForcePhoneOff", true), 0);
        QVERIFY(bed.WaitForEvent("phone PhoneStatus(0)"));
        QCOMPARE(bed.Ask("PhoneSetEnabled", true), 0);
        QCOMPARE(bed.PhoneStatus(), "(0, 0, 3, 0, 1, true)");
        for (int minutes : {5, 5})
            bed.PassTime(minutes * MinuteMs); // The signal's watchdogs are stopped.
        QCOMPARE(bed.LogTexts().filter("Signal Quality"), QStringList());
        QCOMPARE(bed.Events("-> "), QStringList{"-> gsm ModemSetEnabled(false)"});

        QVERIFY(bed.Command("fault ModemSetEnabled status 1 times 1"));
        QCOMPARE(bed.Ask("ForcePhoneOff", false), -51);
        QCOMPARE(bed.PhoneStatus(), "(0, 0, 3, 0, 1, true)");
        QCOMPARE(bed.Ask("ForcePhoneOff", false), 0);
        QVERIFY(bed.WaitForEvent("phone PhoneStatus(2)"));
        QCOMPARE(bed.PhoneStatus().right(6), "false)");
        VERIFY_IN_ORDER(bed.LogTexts(), {"2 New ForcePhoneOff state 1", "2 EvaluatePhonePower() forced OFF",
                                         "2 New ForcePhoneOff state 0", "2 EvaluatePhonePower() Remove forced OFF"});

        // The modem stays off at the release if no setting asks for it.
        bed.WriteSettings("");
        QCOMPARE(bed.Ask("ForcePhoneOff", true), 0);
        QCOMPARE(bed.Ask("PhoneSetEnabled", false), 0);
        bed.ForgetRecords();
        QCOMPARE(bed.Ask("ForcePhoneOff", false), 0);
        QCOMPARE(bed.Events("-> "), QStringList());
    }

    /// The watchdog runs after a failed power-on, since the daemon may only have answered too late.
    void refusedPowerOn()
    {
        TestBed bed;
        QVERIFY(bed.Start({}) && bed.Command("fault ModemSetEnabled status 1 times 1"));
        QCOMPARE(bed.Ask("PhoneSetEnabled", true), -51);
        QCOMPARE(bed.PhoneStatus(), "(0, 0, 1, 0, 1, false)");
        bed.PassTime(3 * MinuteMs);
        QVERIFY(bed.WaitForLog("Timeout receiving REGISTERED status. Power Cycle the modem"));
        QCOMPARE(bed.Ask("PhoneSetEnabled", true), 0);
        QVERIFY(bed.PassSimCheck());
    }

    void daemonLeavesInMidCall()
    {
        TestBed bed;
        QVERIFY(bed.BringUp({"fault Call silent times 1"}));
        const QDBusPendingCall call = bed.Phone().VoiceCallMake("+49222");
        QVERIFY(bed.WaitForEvent("-> gsm Call") && bed.Command("daemon leave"));
        QCOMPARE(TestBed::StatusOf(call), -55);
        QVERIFY(bed.WaitForLog("EMERGENCY GSM CALL SUCCESFULLY STOPPED"));
        VERIFY_IN_ORDER(bed.LogTexts(), {"1 Error making call (Call)", "2 Gsmd unregistered from DBus",
                                         "2 Gsmd service becomes FAILED", "2 Hangup after failure",
                                         "2 Gsm phone call TERMINATED", "4 EMERGENCY GSM CALL SUCCESFULLY STOPPED"});
        // The last state is kept until the daemon is back.
        QCOMPARE(bed.PhoneStatus(), "(0, 2, 3, 71, 1, false)");
        bed.ForgetRecords();
        QVERIFY(bed.Command("daemon return") && bed.PassSimCheck() && bed.WaitForEvent("phone SimPresent(true)"));
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), 0);
    }

    void daemonComesAndGoes()
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
    }

    void setApn()
    {
        TestBed bed;
        QVERIFY(bed.Start({}));
        const auto set = [&] { return bed.Ask("SetApn", "web", "me", "secret"); };
        QCOMPARE(set(), -57);
        bed.WriteSettings(
            TestBed::PhoneEnabled); // As another program does. SetApn makes a power decision, which reads it.
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

    /// Answers and signals of wrong types do no harm, and a correct daemon works afterwards.
    void strangeDaemon()
    {
        const std::tuple<QVariantList, const char*, const char*> rows[] = {
            {{}, "failed", "Sim check failed (error reply)"},
            {{"0"}, "failed", "Sim check failed (error reply)"},
            {{0U, true}, "failed", "Sim check failed (error reply)"},
            {{QVariantMap{{"status", 0}}, 0, "more"}, "failed", "Sim check failed (error reply)"},
            {{0, QVariant::fromValue(QList<int>{1})}, "success", "Now Sim is 0"},
        };
        for (const auto& [answer, outcome, checked] : rows) {
            TestBed bed;
            bed.WriteSettings(TestBed::PhoneEnabled);
            QVERIFY(bed.StartService());
            {
                FakePeers peers([answer = answer](const QDBusMessage& call) { return call.createReply(answer); });
                QVERIFY(peers.Join(Names::GsmService));
                QVERIFY(bed.WaitForLog(QString("Gsmd->ModemSetEnabled(1) request ") + outcome));
                for (const char* signal : {"CallIncoming", "CallAnswered", "MessageReceived", "SignalQuality"})
                    peers.Send(signal, {"text"});
                peers.Send("MessageReceived", {QVariantMap(), "text"});
                peers.Send("SignalQuality", {71U});
                peers.Send("ModemPowered", {});
                QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
                bed.PassTime(SimCheckMs);
                QVERIFY(bed.WaitForLog(checked));
                QCOMPARE(bed.Events("phone ").filter("SimPresent(true)"), QStringList());
                // A report starts no watchdog while no card is known.
                peers.Send("SignalQuality", {QVariant::fromValue<uchar>(71)});
                QVERIFY(bed.WaitForLog("Gsm signal: 71"));
                bed.PassTime(5 * MinuteMs);
                QCOMPARE(bed.LogTexts().filter("Ping modem"), QStringList());
            }
            QVERIFY(bed.WaitForLog("Gsmd detached"));
            bed.ForgetRecords();
            QVERIFY(bed.StartDevice() && bed.PassSimCheck());
        }
    }
};

QTEST_GUILESS_MAIN(ModemTest)
#include "ModemTest.moc"
