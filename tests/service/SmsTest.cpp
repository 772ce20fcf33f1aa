#include "TestBed.h"

#include <QRegularExpression>
#include <QTest>

/// Messages out and in.
class SmsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void needsSim();
    void keepsOrder();
    void dropsFailed();
    void waitsForRegistration();
    void waitsWhileOff();
    void receives();
    void receivesAfterBlockedSend();
    void yieldsToEmergencyCall();
    void yieldsToTermination();
};

namespace
{

int Queue(TestBed& bed, const QString& number, const QString& text = "hello")
{
    return TestBed::StatusOf(bed.Phone().QueueSms(number, text));
}

}

void SmsTest::needsSim()
{
    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n");
    QVERIFY(bed.StartService() && bed.StartDevice() && bed.WaitForLog("Gsm modem REGISTERED"));
    QCOMPARE(Queue(bed, "+491"), -57);
    QVERIFY(bed.PassSimCheck());
    QCOMPARE(Queue(bed, "+492"), 0);
    bed.PassTime(1000);
    QCOMPARE(bed.Events("-> gsm SendSms"), QStringList{R"(-> gsm SendSms("+492", "hello"))"});
    QCOMPARE(bed.Events("phone SmsSent"), QStringList{"phone SmsSent(1, true)"}); // the refused one took no identifier
}

void SmsTest::keepsOrder()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    for (const char* number : {"+491", "", "+493"}) {
        QDBusPendingReply<int, uint> reply = bed.Phone().QueueSms(number, "");
        reply.waitForFinished();
        QCOMPARE(reply.argumentAt<0>(), 0);
        QCOMPARE(reply.argumentAt<1>(), 0U); // on purpose: the identifier comes with SmsSent
    }
    bed.PassTime(1000);
    bed.PassTime(1000);
    QCOMPARE(bed.Events(),
             QStringList({R"(-> gsm SendSms("+491", ""))", "phone SmsSent(1, true)", R"(-> gsm SendSms("", ""))",
                          "phone SmsSent(2, true)", R"(-> gsm SendSms("+493", ""))", "phone SmsSent(3, true)"}));
    QCOMPARE(
        bed.LogTexts(),
        QStringList({"4 Sms id=1 QUEUED", "4 Sms id=2 QUEUED", "4 Sms id=3 QUEUED",
                     "4 Process sms queue: 3 messages present", "5 Gsmd->SendSms() request success", "4 Sms id=1 SENT",
                     "4 Process sms queue: 2 messages present", "5 Gsmd->SendSms() request success", "4 Sms id=2 SENT",
                     "4 Process sms queue: 1 messages present", "5 Gsmd->SendSms() request success", "4 Sms id=3 SENT",
                     "4 Process sms queue: 0 messages present", "4 Process sms queue: 0 messages present"}));
}

void SmsTest::dropsFailed()
{
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Command("fault SendSms error com.example.Busy times 1"));
    QCOMPARE(Queue(bed, "+491"), 0);
    QCOMPARE(Queue(bed, "+492"), 0);
    bed.PassTime(1000);
    bed.PassTime(5000);
    QCOMPARE(bed.Events(), QStringList({R"(-> gsm SendSms("+491", "hello"))", "phone SmsSent(1, false)",
                                        R"(-> gsm SendSms("+492", "hello"))", "phone SmsSent(2, true)"}));
    VERIFY_IN_ORDER(bed.LogTexts(), {"2 Gsmd->SendSms() request failed", "4 Sms id=1 DISCARDED", "4 Sms id=2 SENT"});
}

void SmsTest::waitsForRegistration()
{
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Command("network lost") && bed.WaitForLog("Gsm modem POWERED"));
    QCOMPARE(Queue(bed, "+491"), 0);
    QCOMPARE(Queue(bed, "+492"), 0);
    bed.PassTime(1000);
    QCOMPARE(bed.LogTexts().count("5 Gsm is ON: sms queue will be processed when gsm becomes REGISTERED"), 2);
    QCOMPARE(bed.Events("-> "), QStringList());

    QVERIFY(bed.Command("network found") && bed.WaitForLog("Sms id=1 SENT"));
    QCOMPARE(bed.Events("phone Sms"), QStringList{"phone SmsSent(1, true)"}); // the next a second later
    bed.PassTime(1000);
    QCOMPARE(bed.Events("phone Sms"), QStringList({"phone SmsSent(1, true)", "phone SmsSent(2, true)"}));
    VERIFY_IN_ORDER(bed.Events(), {"<- gsm ModemRegistered()", "phone PhoneStatus(2)", "phone SmsSent(1, true)"});
}

void SmsTest::waitsWhileOff()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    QCOMPARE(TestBed::StatusOf(bed.Phone().ForcePhoneOff(true)), 0);
    QVERIFY(bed.WaitForLog("Gsm modem OFF"));
    QCOMPARE(Queue(bed, "+491"), 0);
    bed.PassTime(1000);
    QVERIFY(bed.LogTexts().contains("2 Unexpected: the Gsm is OFF (please dig for bug)"));
    QCOMPARE(bed.Events("-> "), QStringList{"-> gsm ModemSetEnabled(false)"});

    QCOMPARE(TestBed::StatusOf(bed.Phone().ForcePhoneOff(false)), 0);
    QVERIFY(bed.WaitForEvent("phone SmsSent(1, true)"));
}

void SmsTest::receives()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    QCOMPARE(TestBed::StatusOf(bed.Phone().VoiceCallMake("+49222")), 0);
    QVERIFY(bed.WaitForEvent("phone VoiceCall(2)"));
    bed.ForgetRecords();
    QVERIFY(bed.Commands({"sms +491 first", "sms +492 second"}));
    QVERIFY(bed.WaitForEvent("phone SmsReceived", 2));
    // Text and details as the daemon tells them
    QCOMPARE(bed.Events("phone ").replaceInStrings("phone SmsReceived", ""),
             bed.Events("<- ").replaceInStrings("<- gsm MessageReceived", ""));
    QCOMPARE(bed.LogTexts(), QStringList({"4 Sms RECEIVED", "4 Sms RECEIVED"}));
}

void SmsTest::receivesAfterBlockedSend()
{
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Command("fault SendSms silent"));
    QCOMPARE(Queue(bed, "+491"), 0);
    bed.BeginPassTime(1000);
    QVERIFY(bed.WaitForEvent("-> gsm SendSms"));
    QVERIFY(bed.Command("sms +492 meanwhile"));
    bed.EndRemoteCall(20000);
    const QStringList events = bed.Events("phone ");
    QCOMPARE(events[0], "phone SmsSent(1, false)");
    QVERIFY(events[1].startsWith(R"(phone SmsReceived("meanwhile", )"));
}

// In a burst of messages that are all due, each send blocks the service.

void SmsTest::yieldsToEmergencyCall()
{
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Command("fault SendSms silent times 2"));
    for (int i = 0; i < 5; ++i)
        QCOMPARE(Queue(bed, "+491"), 0);
    bed.BeginPassTime(1000);
    QVERIFY(bed.WaitForEvent("-> gsm SendSms"));
    const QDBusPendingCall loop = bed.Phone().VoiceCallLoopMake({"112"});
    QVERIFY(bed.Command("sms +492 meanwhile"));
    bed.EndRemoteCall(20000);
    QCOMPARE(TestBed::StatusOf(loop), 0);
    bed.EndRemoteCall(20000); // the second send, during which the loop's start becomes due
    QVERIFY(bed.WaitForEvent("phone SmsSent", 5));
    const QStringList events =
        bed.Events().replaceInStrings(QRegularExpression("SmsReceived.*"), QStringLiteral("SmsReceived"));
    VERIFY_IN_ORDER(events, {"phone SmsSent(1, false)", "phone SmsReceived", "phone SmsSent(2, false)",
                             R"(-> gsm Call("112"))", "phone SmsSent(3, true)"});
}

void SmsTest::yieldsToTermination()
{
    constexpr int Burst = 8;
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Command("fault SendSms delay 200"));
    for (int i = 0; i < Burst; ++i)
        QCOMPARE(Queue(bed, "+491"), 0);
    bed.BeginPassTime(1000);
    QVERIFY(bed.WaitForEvent("-> gsm SendSms"));
    QCOMPARE(bed.StopService(), 0);
    QVERIFY(bed.Events("-> gsm SendSms").size() < Burst);
}

QTEST_GUILESS_MAIN(SmsTest)

#include "SmsTest.moc"
