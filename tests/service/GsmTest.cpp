#include "Gsm.h"

#include "GsmPowerController.h"
#include "GsmProxy.h"
#include "LogCapture.h"
#include "PhoneManager.h"
#include "PhoneManagerAdaptor.h"
#include "TestBed.h"
#include "common_qdbus.h"

#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QMetaMethod>
#include <QSignalSpy>
#include <QTest>

#include <functional>

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
using Operation = std::function<bool(GsmPowerController&)>;

}

Q_DECLARE_METATYPE(Command)
Q_DECLARE_METATYPE(Operation)

/// The GSM daemon's client, the power controller and the traces, in this process against the simulated device.
class GsmTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void commands_data();
    void commands();
    void answersLateAndNever();
    void simPresentKeepsAnswer();
    void comesAndGoes();
    void relaysSignals();
    void powerTransitions_data();
    void powerTransitions();
    void traces();
    void longLinesAreCut();
    void metaObjects_data();
    void metaObjects();

private:
    QStringList Requests()
    {
        const QStringList requests = bed.Events("-> ");
        bed.ForgetRecords();
        return requests;
    }

    TestBed bed;
};

void GsmTest::initTestCase()
{
    QVERIFY(bed.StartDevice());
    QVERIFY(Gsm::Instance().IsValid() && Gsm::Instance().IsReady());
    QCOMPARE(Texts(TakeLog()),
             QStringList({"4 Creating Gsm service manager", "4 Gsmd registered to DBus", "4 Creating gsm proxy",
                          "4 Gsmd attached", "4 Gsm service manager created"}));
}

void GsmTest::commands_data()
{
    QTest::addColumn<Command>("command");
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QString>("request");
    QTest::addColumn<QString>("outcome"); ///< how the outcome lines name the request
    QTest::addColumn<bool>("sync");

    const auto row = [](const char* signature, Command command, const char* request, const char* outcome,
                        bool sync = false) {
        QTest::newRow(outcome) << command << QString("bool Gsm::%1").arg(signature) << QString(request)
                               << QString(outcome) << sync;
    };
    row(
        "PingRegistration()", [](Gsm& gsm) { return gsm.PingRegistration(); }, "PingRegistration()",
        "PingRegistration()", true);
    row(
        "IsSimPresent(bool&)", [present = false](Gsm& gsm) mutable { return gsm.IsSimPresent(present); },
        "IsSimPresent()", "IsSimPresent()", true);
    row(
        "Answer()", [](Gsm& gsm) { return gsm.Answer(); }, "CallAnswer()", "CallAnswer()");
    row(
        "HangupAll()", [](Gsm& gsm) { return gsm.HangupAll(); }, "CallHangupAll()", "CallHangupAll()");
    row(
        "Hangup()", [](Gsm& gsm) { return gsm.Hangup(); }, "CallHangup()", "CallHangup()");
    row(
        "SetGprsApn(const QString&, const QString&, const QString&)",
        [](Gsm& gsm) { return gsm.SetGprsApn("web", "me", "secret"); }, R"(GprsSetApn("web", "me", "secret"))",
        "GprsSetApn(web,me,secret)");
    row(
        "Call(const QString&)", [](Gsm& gsm) { return gsm.Call("+4912"); }, R"(Call("+4912"))", "Call(+4912)");
    row(
        "SendSms(const QString&, const QString&)", [](Gsm& gsm) { return gsm.SendSms("+4912", "hi there"); },
        R"(SendSms("+4912", "hi there"))", "SendSms()");
    row(
        "SetEnabled(bool)", [](Gsm& gsm) { return gsm.SetEnabled(true); }, "ModemSetEnabled(true)",
        "ModemSetEnabled(1)");
}

/// Each command with each kind of answer: what is sent, what is logged, and what it returns.
void GsmTest::commands()
{
    QFETCH(Command, command);
    QFETCH(QString, signature);
    QFETCH(QString, request);
    QFETCH(QString, outcome);
    QFETCH(bool, sync);

    Gsm& gsm = Gsm::Instance();
    const QString method = request.left(request.indexOf('('));
    const QString trace = QString("Dbus Gsmd->%1 %2 call: ").arg(method, sync ? "sync" : "async");
    const QStringList requested =
        signature.contains("SetEnabled") ? QStringList{"4 Gsmd->ModemSetEnabled(1) requested"} : QStringList();
    const struct {
        QString fault;
        bool success;
        QString traced;
    } answers[] = {
        {"status 0", true, sync ? "9 %1valid=true, value=0" : "9 %1finished=true, valid=true, error=false, value=0"},
        {"status 3", false, sync ? "2 %1valid=true, value=3" : "9 %1finished=true, valid=true, error=false, value=3"},
        {"error com.example.Busy", false,
         sync ? "2 %1valid=false, value=nd" : "2 %1finished=true, valid=false, error=true (Injected fault), value=nd"},
    };
    for (const auto& answer : answers) {
        QVERIFY(bed.Command("fault " + method + ' ' + answer.fault + " times 1"));
        Requests();
        TakeLog();
        QCOMPARE(command(gsm), answer.success);
        QCOMPARE(Requests(), QStringList{"-> gsm " + request});

        const QList<Logged> lines = TakeLog();
        const QString told = answer.success ? "5 Gsmd->%1 request success" : "2 Gsmd->%1 request failed";
        const QStringList expected = requested + QStringList{answer.traced.arg(trace), told.arg(outcome)};
        QCOMPARE(Texts(lines), expected);
        for (const Logged& line : lines) {
            QCOMPARE(line.origin, "/com/quillmark/kova/phonemanager/phoneobj");
            if (!line.Message().startsWith("Dbus "))
                QCOMPARE(line.Prefix(), "[Gsm.cpp] " + signature.toUtf8());
        }
    }

    QVERIFY(bed.Command("daemon leave"));
    QTRY_VERIFY(!gsm.IsReady());
    TakeLog();
    QVERIFY(!command(gsm));
    const QList<Logged> lines = TakeLog();
    QCOMPARE(Texts(lines), QStringList{"1 Gsm is not ready"});
    QCOMPARE(lines[0].origin, "/com/quillmark/kova/soundmanager/soundobj");
    QCOMPARE(lines[0].Prefix(), "[Gsm.cpp] " + signature.toUtf8());
    QVERIFY(bed.Command("daemon return"));
    QTRY_VERIFY(gsm.IsReady());
}

/// A power-on may take 3 s, a power-off a minute.
void GsmTest::answersLateAndNever()
{
    Gsm& gsm = Gsm::Instance();
    QVERIFY(bed.Command("fault ModemSetEnabled delay 3500 times 1"));
    QVERIFY(gsm.SetEnabled(false));
    TakeLog();
    QVERIFY(bed.Command("fault ModemSetEnabled silent times 1"));
    QVERIFY(!gsm.SetEnabled(true));
    const QStringList texts = Texts(TakeLog());
    QVERIFY(
        texts.at(1).startsWith("2 Dbus Gsmd->ModemSetEnabled async call: finished=true, valid=false, error=true ("));
    QVERIFY(texts.at(1).endsWith("), value=nd"));
    QCOMPARE(texts.at(2), "2 Gsmd->ModemSetEnabled(1) request failed");
}

void GsmTest::simPresentKeepsAnswer()
{
    Gsm& gsm = Gsm::Instance();
    bool present = false;
    QVERIFY(gsm.IsSimPresent(present) && present);
    QVERIFY(bed.Command("fault IsSimPresent error com.example.Busy times 1"));
    QVERIFY(!gsm.IsSimPresent(present) && present);
    present = false;
    QVERIFY(bed.Command("fault IsSimPresent status 1 times 1")); // refused, and yet with a value
    QVERIFY(!gsm.IsSimPresent(present) && present);
}

void GsmTest::comesAndGoes()
{
    Gsm& gsm = Gsm::Instance();
    QSignalSpy ready(&gsm, SIGNAL(Ready()));
    QSignalSpy failed(&gsm, SIGNAL(Failed()));
    TakeLog();

    QVERIFY(QMetaObject::invokeMethod(&gsm, "OnGsmdRegistered")); // a second notice
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

/// A receiver finds the new state when it is told, and the state outlives the daemon.
void GsmTest::relaysSignals()
{
    Gsm& gsm = Gsm::Instance();
    QStringList relayed;
    const auto record = [&](const char* name) {
        int status = -1;
        uint quality = 0;
        QVERIFY(gsm.GetModemStatus(status) && gsm.GetSignalQuality(quality));
        relayed.append(QString("%1 %2 %3").arg(name).arg(status).arg(quality));
    };
    QObject context;
    connect(&gsm, &Gsm::ModemOn, &context, [&] { record("on"); });
    connect(&gsm, &Gsm::ModemRegistered, &context, [&] { record("registered"); });
    connect(&gsm, &Gsm::SignalQuality, &context, [&](uint quality) { record(qPrintable(QString::number(quality))); });
    connect(&gsm, &Gsm::ModemOff, &context, [&] { record("off"); });

    QVERIFY(gsm.SetEnabled(true));
    QTRY_COMPARE(bed.DeviceState()["modem"].toString(), "registered");
    QVERIFY(bed.Commands({"modem drop", "signal 255"}));
    QTRY_VERIFY(relayed.contains("off 0 71"));
    QVERIFY(gsm.SetEnabled(true));
    QTRY_COMPARE(relayed.last(), "255 2 255");
    QVERIFY(bed.Commands({"daemon leave", "modem drop", "daemon return"})); // unheard
    QTRY_VERIFY(gsm.IsReady());
    record("kept");
    QCOMPARE(relayed.mid(relayed.indexOf("off 0 71")),
             QStringList({"off 0 71", "on 1 71", "registered 2 71", "255 2 255", "kept 2 255"}));
    QVERIFY(bed.Command("signal 71"));
}

void GsmTest::powerTransitions_data()
{
    QTest::addColumn<Operation>("reach"); ///< from off
    QTest::addColumn<Operation>("operate");
    QTest::addColumn<QString>("requests"); ///< to the daemon: 0 off, 1 on
    QTest::addColumn<bool>("resultWhenDone");
    QTest::addColumn<bool>("resultWhenRefused");
    QTest::addColumn<int>("statusWhenDone");
    QTest::addColumn<int>("statusWhenRefused");
    QTest::addColumn<QString>("log"); ///< %1 is the state after

    using Controller = GsmPowerController;
    const Operation off = [](Controller&) { return true; };
    const Operation on = [](Controller& power) { return power.RequestOn(); };
    const Operation forced = [](Controller& power) { return power.ForceOff(true); };
    const Operation forcedWanted = [](Controller& power) { return power.ForceOff(true) && power.RequestOn(); };
    const Operation forcedUnwanted = [](Controller& power) {
        return power.RequestOn() && power.ForceOff(true) && power.RequestOff();
    };
    const Operation reset = [](Controller& power) { return power.ResetOff(); };
    const Operation requestOff = [](Controller& power) { return power.RequestOff(); };
    const Operation release = [](Controller& power) { return power.ForceOff(false); };
    enum { Off = GsmPowerStatusOff, On = GsmPowerStatusOn, Forced = GsmPowerStatusForcedOff };
    const QString resetLog = "RESET to OFF";
    const QString onLog = "(RequestOn) Status=GsmPowerStatus%2 => Status=GsmPowerStatus%1, requestedOn=1";
    const QString offLog = "(RequestOff) Status=GsmPowerStatus%2, => Status=GsmPowerStatus%1, requestedOn=0";
    const QString forceLog = "(ForceOff=%3) Status=GsmPowerStatus%2, => Status=GsmPowerStatus%1, requestedOn=%4";

    const auto row = [](const char* name, const Operation& reach, const Operation& operate, const char* requests,
                        int statusWhenDone, int statusWhenRefused, const QString& log) {
        // Only a refused power-on and a refused reset are told.
        const bool told = log.startsWith("RESET") || QByteArray(requests) == "1";
        QTest::newRow(name) << reach << operate << requests << true << !told << statusWhenDone << statusWhenRefused
                            << log;
    };
    row("reset off", off, reset, "0", Off, Off, resetLog);
    row("reset on", on, reset, "0", Off, Off, resetLog);
    row("reset forced", forced, reset, "0", Off, Off, resetLog);
    row("on off", off, on, "1", On, Off, onLog.arg("%1", "Off"));
    row("on on", on, on, "", On, On, onLog.arg("%1", "On"));
    row("on forced", forced, on, "", Forced, Forced, onLog.arg("%1", "ForcedOff"));
    row("off off", off, requestOff, "", Off, Off, offLog.arg("%1", "Off"));
    row("off on", on, requestOff, "0", Off, Off, offLog.arg("%1", "On"));
    row("off forced", forced, requestOff, "", Forced, Forced, offLog.arg("%1", "ForcedOff"));
    row("force off", off, forced, "", Forced, Forced, forceLog.arg("%1", "Off", "1", "0"));
    row("force on", on, forced, "0", Forced, Forced, forceLog.arg("%1", "On", "1", "1"));
    row("force forced", forced, forced, "", Forced, Forced, forceLog.arg("%1", "ForcedOff", "1", "0"));
    row("release off", off, release, "", Off, Off, forceLog.arg("%1", "Off", "0", "0"));
    row("release on", on, release, "", On, On, forceLog.arg("%1", "On", "0", "1"));
    row("release forced", forced, release, "", Off, Off, forceLog.arg("%1", "ForcedOff", "0", "0"));
    row("release wanted", forcedWanted, release, "1", On, Forced, forceLog.arg("%1", "ForcedOff", "0", "1"));
    row("release unwanted", forcedUnwanted, release, "", Off, Off, forceLog.arg("%1", "ForcedOff", "0", "0"));
}

void GsmTest::powerTransitions()
{
    QFETCH(Operation, reach);
    QFETCH(Operation, operate);
    QFETCH(QString, requests);
    QFETCH(QString, log);
    const QStringList expected = requests.isEmpty() ? QStringList()
                                                    : QStringList{requests == "1" ? "-> gsm ModemSetEnabled(true)"
                                                                                  : "-> gsm ModemSetEnabled(false)"};

    for (const bool done : {true, false}) {
        GsmPowerController& power = GsmPowerController::Instance();
        QVERIFY(power.ResetOff() && reach(power));
        Requests();
        TakeLog();
        QVERIFY(bed.Command(done ? "fault ModemSetEnabled clear" : "fault ModemSetEnabled status 1"));

        QTEST(operate(power), done ? "resultWhenDone" : "resultWhenRefused");
        QTEST(int(power.Status()), done ? "statusWhenDone" : "statusWhenRefused");
        QCOMPARE(Requests(), expected);
        const QStringList texts = Texts(TakeLog());
        static const char* const names[] = {"Unknown", "Off", "On", "ForcedOff"};
        QVERIFY(texts.contains("4 " + (log.contains("%1") ? log.arg(names[power.Status()]) : log)));
        QCOMPARE(texts.contains("1 Reset failed"), log.startsWith("RESET") && !done);
        QVERIFY(bed.Command("fault ModemSetEnabled clear"));
    }
}

/// What no command of the client shows: unfinished and mistyped answers, and where the lines say they come from.
void GsmTest::traces()
{
    const QDBusMessage call = QDBusMessage::createMethodCall("com.example.Peer", "/", "com.example", "Method");
    const QDBusPendingReply<int> text = QDBusConnection::sessionBus().interface()->asyncCall("GetId");
    QVERIFY(bed.Command("fault CallAnswer silent times 1"));
    const QDBusPendingReply<int> unfinished =
        GsmProxy(Names::GsmService, Names::GsmObject, QDBusConnection::sessionBus()).CallAnswer();
    QDBusPendingReply<int>(text).waitForFinished();

    TakeLog();
    PRINT_DBUS_RESULT("/some/origin", "Peer->Method", QDBusReply<int>(call.createReply("0")));
    PRINT_DBUS_RESULT("/some/origin", "Peer->Method", unfinished);
    PRINT_DBUS_RESULT("/some/origin", "Peer->Method", text);
    const QList<Logged> lines = TakeLog();
    const QStringList texts = Texts(lines);
    QCOMPARE(texts.mid(0, 2), QStringList({"2 Dbus Peer->Method sync call: valid=false, value=nd",
                                           "2 Dbus Peer->Method async call: finished=false"}));
    QVERIFY(texts.at(2).startsWith("2 Dbus Peer->Method async call: finished=true, valid=false, error=true ("));
    for (const Logged& line : lines) {
        QCOMPARE(line.origin, "/some/origin");
        QCOMPARE(line.Prefix(),
                 QByteArray("[../../include/common_qdbus.h] void PRINT_DBUS_RESULT(const char*, const "
                            "QString&, const ") +
                     (line.Message().contains(" sync ") ? "QDBusReply<int>&)" : "QDBusPendingReply<int>&)"));
    }
}

void GsmTest::longLinesAreCut()
{
    const QByteArray number(600, '7');
    TakeLog();
    LOG(LogLevelProgress, "number %s", number.constData());
    const QList<Logged> lines = TakeLog();
    QCOMPARE(lines[0].text.size(), 511);
    QVERIFY(lines[0].Message().startsWith("number 777"));
}

void GsmTest::metaObjects_data()
{
    QTest::addColumn<bool>("adaptor");
    QTest::addColumn<QString>("members"); ///< all, in this order

    QTest::newRow("service")
        << false
        << "VoiceCallPrematureFail() PhoneStatus(uint) SimPresent(bool) SmsReceived(QString,QVariantMap) "
           "SmsSent(uint,bool) VoiceCall(uint) StartCallLoop(QStringList) OnGsmReady() OnGsmFailed() OnGsmModemOn() "
           "OnGsmModemRegistered() OnGsmModemOff() OnGsmCallIncoming(QVariantMap) OnGsmCallAnswered(QVariantMap) "
           "OnGsmCallTimeout() OnGsmCallTerminated() OnGsmCallRejected() OnGsmSignalQuality(uint) "
           "OnGsmSmsReceived(QString,QVariantMap) OnSmsSent(Sms,bool) OnSimCheckContinue() "
           "OnGsmPowerToRegisteredTimeout() OnGsmSignalQualityTimeout() OnGsmSignalQualityPingTimeout() "
           "OnGsmPPPPresenceTimeout() StartCallLoopSlot(QStringList) StartCallLoopSlot() HangupSlot() "
           "PhoneSetEnabled(bool) ForcePhoneOff(bool) GetStatus(uint&,uint&,uint&,uint&,bool&) "
           "QueueSms(QString,QString,uint&) SetApn(QString,QString,QString) VoiceCallMake(QString) "
           "VoiceCallLoopMake(QStringList)";
    QTest::newRow("adaptor")
        << true
        << "PhoneStatus(uint) SimPresent(bool) SmsReceived(QString,QVariantMap) SmsSent(uint,bool) VoiceCall(uint) "
           "ForcePhoneOff(bool) GetStatus(uint&,uint&,uint&,uint&,bool&) PhoneSetEnabled(bool) "
           "QueueSms(QString,QString,uint&) SetApn(QString,QString,QString) VoiceCallLoopMake(QStringList) "
           "VoiceCallMake(QString)";
}

/// The members are part of the contract with the device's introspecting tools, down to their order.
void GsmTest::metaObjects()
{
    QFETCH(bool, adaptor);
    const QMetaObject& object = adaptor ? PhoneManagerAdaptor::staticMetaObject : PhoneManager::staticMetaObject;
    QStringList members;
    for (int i = object.methodOffset(); i < object.methodCount(); ++i)
        members.append(object.method(i).methodSignature());
    QTEST(members.join(' '), "members");
}

QTEST_GUILESS_MAIN(GsmTest)

#include "GsmTest.moc"
