#include "Gsm.h"

#include "GsmPowerController.h"
#include "GsmProxy.h"
#include "LogCapture.h"
#include "PhoneManager.h"
#include "TestBed.h"
#include "common_qdbus.h"

#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QMetaMethod>
#include <QSignalSpy>
#include <QTest>

#include <functional>
#include <utility>

namespace
{

int syncs = 0;

}

/// Takes the place of the system's function in the settings library.
extern "C" int fsync(int)
{
    ++syncs;
    return 0;
}

namespace
{

QStringList Texts(const QList<Logged>& lines)
{
    QStringList texts;
    for (const Logged& line : lines)
        texts.append(QStringLiteral("%1 %2").arg(line.level).arg(QString::fromUtf8(line.Message())));
    return texts;
}

using Command = std::function<bool(Gsm&)>;

}

Q_DECLARE_METATYPE(Command)

/// Gsm, GsmPowerController and the traces, run in this process with the simulated device.
class GsmTest : public QObject
{
    Q_OBJECT

    TestBed bed;

    QStringList Requests()
    {
        const QStringList requests = bed.Events("-> gsm ");
        bed.ForgetRecords();
        return requests;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(bed.StartDevice());
        QVERIFY(Gsm::Instance().IsValid());
        QVERIFY(Gsm::Instance().IsReady());
    }

    void commands_data()
    {
        QTest::addColumn<QString>("signature");
        QTest::addColumn<QString>("request");
        QTest::addColumn<QString>("outcome"); ///< the request in the outcome line
        QTest::addColumn<Command>("command");

        const auto row = [](const char* signature, QString request, const char* outcome, const Command& command) {
            QTest::newRow(outcome) << signature << request << outcome << command;
        };
        row("PingRegistration()", "PingRegistration()", "PingRegistration()", &Gsm::PingRegistration);
        row("IsSimPresent(bool&)", "IsSimPresent()", "IsSimPresent()", [](Gsm& gsm) {
            bool present = false;
            return gsm.IsSimPresent(present);
        });
        row("Answer()", "CallAnswer()", "CallAnswer()", &Gsm::Answer);
        row("HangupAll()", "CallHangupAll()", "CallHangupAll()", &Gsm::HangupAll);
        row("Hangup()", "CallHangup()", "CallHangup()", &Gsm::Hangup);
        row("SetGprsApn(const QString&, const QString&, const QString&)", R"(GprsSetApn("web", "me", "secret"))",
            "GprsSetApn(web,me,secret)", [](Gsm& gsm) { return gsm.SetGprsApn("web", "me", "secret"); });
        row("Call(const QString&)", R"(Call("+4912"))", "Call(+4912)", [](Gsm& gsm) { return gsm.Call("+4912"); });
        row("SendSms(const QString&, const QString&)", R"(SendSms("+4912", "hi there"))", "SendSms()",
            [](Gsm& gsm) { return gsm.SendSms("+4912", "hi there"); });
        row("SetEnabled(bool)", "ModemSetEnabled(true)", "ModemSetEnabled(1)",
            [](Gsm& gsm) { return gsm.SetEnabled(true); });
    }

    /// Checks request, log lines and result of each command, for each kind of answer.
    void commands()
    {
        QFETCH(QString, signature);
        QFETCH(QString, request);
        QFETCH(QString, outcome);
        QFETCH(Command, command);
        Gsm& gsm = Gsm::Instance();
        const QByteArray place = "[Gsm.cpp] bool Gsm::" + signature.toUtf8();
        const QString method = request.left(request.indexOf('('));
        const bool sync = method == "PingRegistration" || method == "IsSimPresent";
        const auto traced = [&](int level, const QString& result) {
            return QString("%1 Dbus Gsmd->%2 ").arg(level).arg(method) +
                   (sync ? "sync call: " : "async call: finished=true, ") + result;
        };
        const QString noError = sync ? "" : "error=false, ";
        const QString error = sync ? "" : "error=true (Injected fault), ";
        const std::tuple<const char*, bool, QString> answers[] = {
            {"status 0", true, traced(9, "valid=true, " + noError + "value=0")},
            {"status 3", false, traced(sync ? 2 : 9, "valid=true, " + noError + "value=3")},
            {"error com.example.Busy", false, traced(2, "valid=false, " + error + "value=nd")},
        };
        for (const auto& [fault, success, line] : answers) {
            QVERIFY(bed.Command("fault " + method + ' ' + fault + " times 1"));
            Requests();
            TakeLog();
            QCOMPARE(command(gsm), success);
            QCOMPARE(Requests(), QStringList{"-> gsm " + request});

            const QList<Logged> lines = TakeLog();
            QStringList expected = {
                line, QString(success ? "5 Gsmd->%1 request success" : "2 Gsmd->%1 request failed").arg(outcome)};
            if (method == "ModemSetEnabled")
                expected.prepend("4 Gsmd->ModemSetEnabled(1) requested");
            QCOMPARE(Texts(lines), expected);
            for (const Logged& line : lines) {
                QCOMPARE(line.origin, Names::PhoneObject);
                QVERIFY(line.Prefix() == place || line.Message().startsWith("Dbus "));
            }
        }

        QVERIFY(bed.Command("daemon leave"));
        QTRY_VERIFY(!gsm.IsReady());
        TakeLog();
        QVERIFY(!command(gsm));
        const QList<Logged> lines = TakeLog();
        QCOMPARE(Texts(lines), QStringList{"1 Gsm is not ready"});
        QCOMPARE(lines[0].origin, Names::SoundManagerObject);
        QCOMPARE(lines[0].Prefix(), place);
        QVERIFY(bed.Command("daemon return"));
        QTRY_VERIFY(gsm.IsReady());
    }

    /// A power-on times out after 3 s, a power-off after a minute.
    void answersLateAndNever()
    {
        Gsm& gsm = Gsm::Instance();
        QVERIFY(bed.Command("fault ModemSetEnabled delay 3500 times 1"));
        QVERIFY(gsm.SetEnabled(false));
        QVERIFY(bed.Command("fault ModemSetEnabled silent times 1"));
        QVERIFY(!gsm.SetEnabled(true));
    }

    void simPresentKeepsAnswer()
    {
        Gsm& gsm = Gsm::Instance();
        bool present = true;
        QVERIFY(bed.Command("fault IsSimPresent error com.example.Busy times 1"));
        QVERIFY(!gsm.IsSimPresent(present));
        QVERIFY(present);
        present = false;
        QVERIFY(bed.Command("fault IsSimPresent status 1 times 1")); // a failure that carries a value
        QVERIFY(!gsm.IsSimPresent(present));
        QVERIFY(present);
    }

    /// A repeated notification about the daemon changes nothing.
    void comesAndGoes()
    {
        Gsm& gsm = Gsm::Instance();
        QSignalSpy ready(&gsm, SIGNAL(Ready()));
        QSignalSpy failed(&gsm, SIGNAL(Failed()));
        TakeLog();
        QVERIFY(QMetaObject::invokeMethod(&gsm, "OnGsmdRegistered"));
        QVERIFY(bed.Command("daemon leave"));
        QTRY_COMPARE(failed.count(), 1);
        QVERIFY(QMetaObject::invokeMethod(&gsm, "OnGsmdUnregistered"));
        QVERIFY(bed.Command("daemon return"));
        QTRY_COMPARE(ready.count(), 1);
        QCOMPARE(failed.count(), 1);
        QCOMPARE(Texts(TakeLog()),
                 QStringList({"4 Gsmd registered to DBus", "2 Gsmd unregistered from DBus", "2 Destroying gsm proxy",
                              "2 Gsmd detached", "2 Gsmd unregistered from DBus", "4 Gsmd registered to DBus",
                              "4 Creating gsm proxy", "4 Gsmd attached"}));
    }

    void powerTransitions_data()
    {
        QTest::addColumn<QStringList>("reach"); ///< operations from off
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("request"); ///< to the daemon
        QTest::addColumn<QString>("done");    ///< state after
        QTest::addColumn<QString>("refused"); ///< state after, if the daemon refuses
        QTest::addColumn<bool>("wanted");     ///< whether the modem is requested on, after

        const auto row = [](const char* reach, const char* operation, const char* request, const char* done,
                            const char* refused, bool wanted) {
            QTest::addRow("%s|%s", reach, operation)
                << QString(reach).split(' ') << operation << request << done << refused << wanted;
        };
        row("reset", "reset", "off", "Off", "Off", false);
        row("on", "reset", "off", "Off", "Off", false);
        row("force", "reset", "off", "Off", "Off", false);
        row("reset", "on", "on", "On", "Off", true);
        row("on", "on", "", "On", "On", true);
        row("force", "on", "", "ForcedOff", "ForcedOff", true);
        row("reset", "off", "", "Off", "Off", false);
        row("on", "off", "off", "Off", "Off", false);
        row("on force", "off", "", "ForcedOff", "ForcedOff", false);
        row("reset", "force", "", "ForcedOff", "ForcedOff", false);
        row("on", "force", "off", "ForcedOff", "ForcedOff", true);
        row("force", "force", "", "ForcedOff", "ForcedOff", false);
        row("reset", "release", "", "Off", "Off", false);
        row("on", "release", "", "On", "On", true);
        row("force", "release", "", "Off", "Off", false);
        row("force on", "release", "on", "On", "ForcedOff", true);
        row("on force off", "release", "", "Off", "Off", false);
    }

    void powerTransitions()
    {
        QFETCH(QStringList, reach);
        QFETCH(QString, operation);
        QFETCH(QString, request);
        QFETCH(bool, wanted);
        const QMap<QString, std::pair<std::function<bool(GsmPowerController&)>, const char*>> operations = {
            {"reset", {&GsmPowerController::ResetOff, "4 RESET to OFF"}},
            {"on", {&GsmPowerController::RequestOn, "4 (RequestOn) Status=%1 => Status=%2, requestedOn=%3"}},
            {"off", {&GsmPowerController::RequestOff, "4 (RequestOff) Status=%1, => Status=%2, requestedOn=%3"}},
            {"force",
             {[](GsmPowerController& power) { return power.ForceOff(true); },
              "4 (ForceOff=1) Status=%1, => Status=%2, requestedOn=%3"}},
            {"release",
             {[](GsmPowerController& power) { return power.ForceOff(false); },
              "4 (ForceOff=0) Status=%1, => Status=%2, requestedOn=%3"}},
        };
        const auto& [operate, log] = operations[operation];
        GsmPowerController& power = GsmPowerController::Instance();
        const auto state = [&] { return QStringList{"Unknown", "Off", "On", "ForcedOff"}.at(power.Status()); };
        for (const bool done : {true, false}) {
            QVERIFY(bed.Command("fault ModemSetEnabled clear") && power.ResetOff());
            for (const QString& step : std::as_const(reach))
                QVERIFY(operations[step].first(power));
            const QString before = state();
            QVERIFY(done || bed.Command("fault ModemSetEnabled status 1"));
            Requests();
            TakeLog();

            // Only a refused power-on or reset is returned as a failure.
            QCOMPARE(operate(power), done || (request != "on" && operation != "reset"));
            QTEST(state(), done ? "done" : "refused");
            QCOMPARE(Requests().join(' '),
                     request.isEmpty() ? QString()
                                       : QString("-> gsm ModemSetEnabled(%1)").arg(request == "on" ? "true" : "false"));
            const QStringList texts = Texts(TakeLog());
            QString line = log;
            if (operation != "reset")
                line = line.arg("GsmPowerStatus" + before, "GsmPowerStatus" + state()).arg(wanted);
            QVERIFY2(texts.contains(line), qPrintable(texts.join('\n')));
            QCOMPARE(texts.contains("1 Reset failed"), operation == "reset" && !done);
        }
        QVERIFY(bed.Command("fault ModemSetEnabled clear"));
    }

    /// Traces that no command can produce: unfinished and mistyped answers, other origins, and lines that are cut.
    void traces()
    {
        const QDBusMessage call = QDBusMessage::createMethodCall("com.example.Peer", "/", "com.example", "Method");
        QDBusPendingReply<int> text = QDBusConnection::sessionBus().interface()->asyncCall("GetId");
        QVERIFY(bed.Command("fault CallAnswer silent times 1"));
        const QDBusPendingReply<int> unfinished =
            GsmProxy(Names::GsmService, Names::GsmObject, QDBusConnection::sessionBus()).CallAnswer();
        text.waitForFinished();

        TakeLog();
        PRINT_DBUS_RESULT("/some/origin", "Peer->Method", QDBusReply<int>(call.createReply("0")));
        PRINT_DBUS_RESULT("/some/origin", "Peer->Method", unfinished);
        PRINT_DBUS_RESULT("/some/origin", QString(600, '7'), text);
        const QList<Logged> lines = TakeLog();
        QCOMPARE(Texts(lines).mid(0, 2), QStringList({"2 Dbus Peer->Method sync call: valid=false, value=nd",
                                                      "2 Dbus Peer->Method async call: finished=false"}));
        QVERIFY(lines.at(2).level == 2);
        QCOMPARE(lines.at(2).text.size(), 511);
        for (const Logged& line : lines) {
            QCOMPARE(line.origin, "/some/origin");
            QCOMPARE(line.Prefix(),
                     QByteArray("[../../include/common_qdbus.h] void PRINT_DBUS_RESULT(const char*, const "
                                "QString&, const ") +
                         (line.Message().contains(" sync ") ? "QDBusReply<int>&)" : "QDBusPendingReply<int>&)"));
        }
    }

    /// A setting must survive a power cut right after the answer.
    void settingIsOnTheDisk()
    {
        qputenv("KOVA_CONFIG_FILE", QFile::encodeName(bed.SettingsPath()));
        PhoneManager phone;
        syncs = 0;
        QCOMPARE(phone.PhoneSetEnabled(true), 0);
        QVERIFY(syncs > 0);
    }

    /// The device's introspecting tools depend on the members and their order.
    void members()
    {
        QStringList members;
        const QMetaObject& object = PhoneManager::staticMetaObject;
        for (int i = object.methodOffset(); i < object.methodCount(); ++i)
            members.append(object.method(i).methodSignature());
        QCOMPARE(members.join(' '),
                 QString("VoiceCallPrematureFail() PhoneStatus(uint) SimPresent(bool) SmsReceived(QString,QVariantMap) "
                         "SmsSent(uint,bool) VoiceCall(uint) StartCallLoop(QStringList) OnGsmReady() OnGsmFailed() "
                         "OnGsmModemOn() OnGsmModemRegistered() OnGsmModemOff() OnGsmCallIncoming(QVariantMap) "
                         "OnGsmCallAnswered(QVariantMap) OnGsmCallTimeout() OnGsmCallTerminated() OnGsmCallRejected() "
                         "OnGsmSignalQuality(uint) OnGsmSmsReceived(QString,QVariantMap) OnSmsSent(Sms,bool) "
                         "OnSimCheckContinue() OnGsmPowerToRegisteredTimeout() OnGsmSignalQualityTimeout() "
                         "OnGsmSignalQualityPingTimeout() OnGsmPPPPresenceTimeout() StartCallLoopSlot(QStringList) "
                         "StartCallLoopSlot() HangupSlot() PhoneSetEnabled(bool) ForcePhoneOff(bool) "
                         "GetStatus(uint&,uint&,uint&,uint&,bool&) QueueSms(QString,QString,uint&) "
                         "SetApn(QString,QString,QString) VoiceCallMake(QString) VoiceCallLoopMake(QStringList)"));
    }
};

QTEST_GUILESS_MAIN(GsmTest)
#include "GsmTest.moc"
