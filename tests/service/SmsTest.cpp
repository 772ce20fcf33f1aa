#include "TestBed.h"

#include <QRegularExpression>
#include <QTest>

/// Outgoing and incoming messages.
class SmsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void needsSim()
    {
        TestBed bed;
        bed.WriteSettings(TestBed::PhoneEnabled);
        QVERIFY(bed.StartService() && bed.StartDevice() && bed.WaitForLog("Gsm modem REGISTERED"));
        QCOMPARE(bed.Ask("QueueSms", "+491", "hello"), -57);
        QVERIFY(bed.PassSimCheck());
        QCOMPARE(bed.Ask("QueueSms", "+492", "hello"), 0);
        bed.PassTime(1000);
        QCOMPARE(bed.Events("-> gsm SendSms"), QStringList{R"(-> gsm SendSms("+492", "hello"))"});
        QCOMPARE(bed.Events("phone Sms"),
                 QStringList{"phone SmsSent(1, true)"}); // The refused message has not used up an identifier.
    }

    /// Messages are sent in order, one a second, and one that fails is dropped.
    void keepsOrder()
    {
        TestBed bed;
        QVERIFY(bed.BringUp({"fault SendSms error com.example.Busy times 1"}));
        for (const char* number : {"+491", "", "+493"}) {
            QDBusPendingReply<int, uint> reply = bed.Phone().QueueSms(number, "");
            reply.waitForFinished();
            QCOMPARE(reply.argumentAt<0>(), 0);
            QCOMPARE(reply.argumentAt<1>(), 0U); // on purpose: the identifier comes with SmsSent
        }
        bed.PassTime(1000);
        bed.PassTime(1000);
        QCOMPARE(bed.Events(),
                 QStringList({R"(-> gsm SendSms("+491", ""))", "phone SmsSent(1, false)", R"(-> gsm SendSms("", ""))",
                              "phone SmsSent(2, true)", R"(-> gsm SendSms("+493", ""))", "phone SmsSent(3, true)"}));
        QCOMPARE(bed.LogTexts().filter(QRegularExpression("^. (Sms|Process)")),
                 QStringList({"4 Sms id=1 QUEUED", "4 Sms id=2 QUEUED", "4 Sms id=3 QUEUED",
                              "4 Process sms queue: 3 messages present", "4 Sms id=1 DISCARDED",
                              "4 Process sms queue: 2 messages present", "4 Sms id=2 SENT",
                              "4 Process sms queue: 1 messages present", "4 Sms id=3 SENT",
                              "4 Process sms queue: 0 messages present", "4 Process sms queue: 0 messages present"}));
    }

    void waitsForRegistration()
    {
        TestBed bed;
        QVERIFY(bed.BringUp({"network lost"}) && bed.WaitForLog("Gsm modem POWERED"));
        QCOMPARE(bed.Ask("QueueSms", "+491", "hello"), 0);
        QCOMPARE(bed.Ask("QueueSms", "+492", "hello"), 0);
        bed.PassTime(1000);
        QCOMPARE(bed.LogTexts().count("5 Gsm is ON: sms queue will be processed when gsm becomes REGISTERED"), 2);
        QCOMPARE(bed.Events("-> "), QStringList());

        QVERIFY(bed.Command("network found") && bed.WaitForLog("Sms id=1 SENT"));
        QCOMPARE(bed.Events("phone "),
                 QStringList({"phone PhoneStatus(1)", "phone PhoneStatus(2)", "phone SmsSent(1, true)"}));
        bed.PassTime(1000);
        QCOMPARE(bed.Events("phone ").last(), "phone SmsSent(2, true)"); // a second later
    }

    void waitsWhileOff()
    {
        TestBed bed;
        QVERIFY(bed.BringUp());
        QCOMPARE(bed.Ask("ForcePhoneOff", true), 0);
        QVERIFY(bed.WaitForLog("Gsm modem OFF"));
        QCOMPARE(bed.Ask("QueueSms", "+491", "hello"), 0);
        bed.PassTime(1000);
        QVERIFY(bed.LogTexts().contains("2 Unexpected: the Gsm is OFF (please dig for bug)"));
        QCOMPARE(bed.Events("-> "), QStringList{"-> gsm ModemSetEnabled(false)"});
        QCOMPARE(bed.Ask("ForcePhoneOff", false), 0);
        QVERIFY(bed.WaitForEvent("phone SmsSent(1, true)"));
    }

    void receives()
    {
        TestBed bed;
        QVERIFY(bed.BringUp({"sms +491 first", "sms +492 second"}) && bed.WaitForEvent("phone SmsReceived", 2));
        // Text and details are those of the daemon.
        QCOMPARE(bed.Events("phone ").replaceInStrings("phone SmsReceived", ""),
                 bed.Events("<- ").replaceInStrings("<- gsm MessageReceived", ""));
        QCOMPARE(bed.LogTexts(), QStringList({"4 Sms RECEIVED", "4 Sms RECEIVED"}));
    }

    // A burst of messages, of which each blocks the service while it is sent, does not delay other work to its end.

    void yieldsToEmergencyCall()
    {
        TestBed bed;
        QVERIFY(bed.BringUp({"fault SendSms silent times 2"}));
        for (int i = 0; i < 5; ++i)
            QCOMPARE(bed.Ask("QueueSms", "+491", "hello"), 0);
        bed.BeginPassTime(1000);
        QVERIFY(bed.WaitForEvent("-> gsm SendSms"));
        const QDBusPendingCall loop = bed.Phone().VoiceCallLoopMake({"112"});
        QVERIFY(bed.Command("sms +492 meanwhile"));
        bed.EndRemoteCall(20000);
        QCOMPARE(TestBed::StatusOf(loop), 0);
        bed.EndRemoteCall(20000); // the second send, during which the loop's start becomes due
        QVERIFY(bed.WaitForEvent("phone SmsSent", 5));
        VERIFY_IN_ORDER(bed.Events().replaceInStrings(QRegularExpression("SmsReceived.*"), "SmsReceived"),
                        {"phone SmsSent(1, false)", "phone SmsReceived", "phone SmsSent(2, false)",
                         R"(-> gsm Call("112"))", "phone SmsSent(3, true)"});
    }

    void yieldsToTermination()
    {
        constexpr int Burst = 8;
        TestBed bed;
        QVERIFY(bed.BringUp({"fault SendSms delay 200"}));
        for (int i = 0; i < Burst; ++i)
            QCOMPARE(bed.Ask("QueueSms", "+491", "hello"), 0);
        bed.BeginPassTime(1000);
        QVERIFY(bed.WaitForEvent("-> gsm SendSms"));
        QCOMPARE(bed.StopService(), 0);
        QVERIFY(bed.Events("-> gsm SendSms").size() < Burst);
    }
};

QTEST_GUILESS_MAIN(SmsTest)
#include "SmsTest.moc"
