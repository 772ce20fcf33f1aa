#include "TestBed.h"

#include <QRegularExpression>
#include <QTest>

/// Calls out, in a loop, and in.
class CallTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void outgoing();
    void nobodyAnswers();
    void refused();
    void audioFails_data();
    void audioFails();
    void teardownFails();
    void loop_data();
    void loop();
    void loopReplaced();
    void loopDuringIncoming();
    void loopEndsWithModem();
    void authorisedCaller();
    void callersTurnedAway_data();
    void callersTurnedAway();
    void answerFails();
};

namespace
{

constexpr int AnswerTimeoutMs = 30000;
constexpr int LoopStartMs = 2000;
constexpr int MayCallIn = 16;

const QStringList outgoingAudio = {"-> audio-out GetOutputType()",     "-> audio-out SetOutputType(2)",
                                   "-> audio-in SetInputSource(3)",    "-> sound GetAmplifiersDefault()",
                                   "-> sound SetAmplifiersDefault(2)", "-> sound PlayGsmVoice()"};
const QStringList incomingAudio = {"-> sound GetAmplifiersDefault()", "-> sound SetAmplifiersDefault(2)",
                                   "-> sound PlayGsmVoice()",         "-> audio-out GetOutputType()",
                                   "-> audio-out SetOutputType(2)",   "-> audio-in SetInputSource(3)"};
/// The device starts with output type and amplifier mask 1.
const QStringList teardown = {"phone VoiceCall(0)", R"(-> sound StopPlay("gsmvoice", ""))",
                              "-> sound SetAmplifiersDefault(1)", "-> audio-out SetOutputType(1)"};

QString Dial(const QString& number)
{
    return QStringLiteral(R"(-> gsm Call("%1"))").arg(number);
}

/// The daemon's signal of a call.
QString Told(const QString& signal, const QString& number)
{
    return QStringLiteral(R"(<- gsm %1({LineIdentification="%2"}))").arg(signal, number);
}

int Call(TestBed& bed, const QString& number)
{
    return TestBed::StatusOf(bed.Phone().VoiceCallMake(number));
}

int CallLoop(TestBed& bed, const QStringList& numbers)
{
    return TestBed::StatusOf(bed.Phone().VoiceCallLoopMake(numbers));
}

}

void CallTest::outgoing()
{
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Command("number +49222 no-answer"));
    QCOMPARE(Call(bed, "+49222"), 0);
    QVERIFY(bed.Command("answer") && bed.WaitForEvent("phone VoiceCall(2)"));
    QCOMPARE(Call(bed, "+49333"), -55);
    QVERIFY(bed.Command("hangup"));
    QVERIFY(bed.WaitForLog("GSM CALL SUCCESFULLY STOPPED"));
    bed.PassTime(3 * AnswerTimeoutMs); // nothing is left to hang up
    QCOMPARE(bed.Events(),
             (QStringList{Dial("+49222")} + outgoingAudio +
              QStringList{Told("CallAnswered", "+49222"), "phone VoiceCall(2)", Told("CallTerminated", "+49222")} +
              teardown));
    QCOMPARE(
        bed.LogTexts(),
        QStringList({"2 Gsm phone call MAKE", "5 Gsmd->Call(+49222) request success", "2 Call succesfully started",
                     "2 Waiting reply in 30 seconds...", "4 [OutputType] Successfully saved OutputType=1",
                     "4 [OutputType] Successfully set OutputType=2", "2 Gsm phone call ANSWERED by receiver",
                     "4 EMERGENCY GSM CALL SUCCESFULLY STARTED", "2 Gsm phone call MAKE",
                     "2 Already an outgoing call in progress!", "2 Gsm phone call TERMINATED",
                     "4 [OutputType] Successfully set OutputType=1",
                     "4 [OutputType] Successfully restored OutputType=1", "4 EMERGENCY GSM CALL SUCCESFULLY STOPPED"}));
    QStringList traces = bed.LogTexts(9).filter("9 Dbus ");
    traces.replaceInStrings(QRegularExpression("^9 Dbus (.*) (a?sync) call: .*"), "\\1 \\2");
    QCOMPARE(traces, QStringList({"Gsmd->Call async", "audioOutCtl->SetOutputType async",
                                  "audioInCtl->SetInputSource async", "SoundManager->GetAmplifiersDefault() sync",
                                  "SoundManager->SetAmplifiersDefault(AMPS_MASK_AUX) async",
                                  "SoundManager->PlayGsmVoice async", "SoundManager->StopPlay(gsmvoice) async",
                                  "SoundManager->SetAmplifiersDefault() async", "audioOutCtl->SetOutputType async"}));
    QCOMPARE(Call(bed, ""), 0); // the next call, and a number that is passed on as it is
    QCOMPARE(bed.Events("-> gsm ").last(), Dial(""));
}

/// The hang-up is repeated until the call has ended.
void CallTest::nobodyAnswers()
{
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Commands({"number +49222 no-answer", "fault CallHangup status 1"}));
    QCOMPARE(Call(bed, "+49222"), 0);
    bed.PassTime(AnswerTimeoutMs);
    bed.PassTime(AnswerTimeoutMs);
    QCOMPARE(bed.Events("-> gsm CallHangup"), QStringList({"-> gsm CallHangup()", "-> gsm CallHangup()"}));
    QVERIFY(bed.Command("fault CallHangup clear"));
    bed.PassTime(AnswerTimeoutMs);
    QVERIFY(bed.WaitForEvent("phone VoiceCall(0)"));
    bed.PassTime(AnswerTimeoutMs);
    QCOMPARE(bed.Events("-> gsm CallHangup").size(), 3);
    VERIFY_IN_ORDER(bed.LogTexts(), {"2 Gsm phone outgoing call TIMEOUT", "1 Can't hungup outgoing call",
                                     "2 Gsm phone outgoing call TIMEOUT", "1 Can't hungup outgoing call",
                                     "5 Gsmd->CallHangup() request success", "2 Gsm phone call TERMINATED"});
}

void CallTest::refused()
{
    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n");
    QVERIFY(bed.StartService() && bed.StartDevice() && bed.WaitForLog("Gsm modem REGISTERED"));
    QCOMPARE(Call(bed, "+49222"), -57);
    QVERIFY(bed.PassSimCheck() && bed.WaitForLog("Gsm signal: 71"));
    QVERIFY(bed.Command("network lost") && bed.WaitForLog("not checking sim since already 3"));
    QCOMPARE(Call(bed, "+49222"), -58);
    QVERIFY(bed.Commands({"network found", "number +49222 unreachable"}) && bed.WaitForEvent("PhoneStatus(2)", 2));
    QCOMPARE(Call(bed, "+49222"), -55);
    QCOMPARE(Call(bed, "+49333"), -55); // busy until the modem goes off
    QCOMPARE(bed.Events("-> gsm Call"), QStringList{Dial("+49222")});
    VERIFY_IN_ORDER(bed.LogTexts(),
                    {"2 Sim is not present (or still not checked): can't make a call",
                     "2 Gsm is not powered ON: can't make a call", "2 Gsmd->Call(+49222) request failed",
                     "1 Error making call (Call)", "2 Already an outgoing call in progress!"});
    bed.ForgetRecords();
    QVERIFY(bed.Command("modem drop") && bed.WaitForEvent("phone PhoneStatus(2)"));
    QCOMPARE(bed.Events("-> sound SetAmp"),
             QStringList{"-> sound SetAmplifiersDefault(0)"}); // never saved, but defined
    QCOMPARE(Call(bed, "+49333"), 0);
}

void CallTest::audioFails_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("repair");
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("outgoingRequests"); ///< that are still made
    QTest::addColumn<int>("incomingRequests");

    const auto fault = [](const char* method, const char* what, const char* line, int outgoing, int incoming) {
        QTest::newRow(method) << QString("fault %1 %2").arg(method, what) << QString("fault %1 clear").arg(method)
                              << line << outgoing << incoming;
    };
    const auto leave = [](const char* service, const char* line, int outgoing, int incoming) {
        QTest::newRow(service) << QString("daemon leave %1").arg(service) << QString("daemon return %1").arg(service)
                               << line << outgoing << incoming;
    };
    leave("audio-out", "2 Can't create AudioOutCtlProxy", 0, 3);
    fault("GetOutputType", "status -1", "2 Can't read current OutputType", 1, 4);
    leave("audio-in", "2 Can't create AudioInCtlProxy", 2, 5);
    fault("SetInputSource", "status 1", "2 Failed to request audioInCtl->SetInputSource(INPUT_SOURCE_GSM_EAR_%1)", 3,
          6);
    leave("sound", "2 Can't create SoundManagerProxy", 3, 0);
    fault("GetAmplifiersDefault", "error com.example.Busy", "2 Failed to request SoundManager->GetAmplifiersDefault()",
          4, 1);
    fault("SetAmplifiersDefault", "status 1", "2 Failed to request SoundManager->SetAmplifiersDefault(AMPS_MASK_AUX)",
          5, 2);
    fault("PlayGsmVoice", "error com.example.Busy", "2 Failed to request SoundManager->PlayGsmVoice", 6, 3);
}

/// The set-up ends at the step that fails; the call stays, and its end brings everything back into order.
void CallTest::audioFails()
{
    QFETCH(QString, command);
    QFETCH(QString, repair);
    QFETCH(QString, line);
    QFETCH(int, outgoingRequests);
    QFETCH(int, incomingRequests);
    const auto audioRequests = [](TestBed& bed) {
        return bed.Events("-> ").filter(QRegularExpression("^-> (audio|sound)"));
    };

    TestBed bed;
    bed.WriteContacts({{"+49111", MayCallIn}});
    QVERIFY(bed.BringUp() && bed.Command(command));
    QCOMPARE(Call(bed, "+49222"), -55);
    QCOMPARE(audioRequests(bed), outgoingAudio.mid(0, outgoingRequests));
    QVERIFY(bed.LogTexts().contains(line.contains("%1") ? line.arg("AUX") : line));

    QVERIFY(bed.Commands({repair, "hangup"}) && bed.WaitForLog("EMERGENCY GSM CALL SUCCESFULLY STOPPED"));
    QVERIFY(bed.Command(command));
    bed.ForgetRecords();
    QVERIFY(bed.Command("ring +49111") && bed.WaitForEvent("phone VoiceCall(1)"));
    QCOMPARE(audioRequests(bed), incomingAudio.mid(0, incomingRequests));
    QVERIFY(bed.LogTexts().contains(line.contains("%1") ? line.arg("MIC") : line));
    QCOMPARE(bed.Events("-> gsm"), QStringList()); // it goes on ringing

    QVERIFY(bed.Commands({repair, "hangup"}) && bed.WaitForLog("GSM STREAM SUCCESFULLY STOPPED"));
    QCOMPARE(Call(bed, "+49222"), 0);
}

void CallTest::teardownFails()
{
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Command("number +49222 no-answer"));
    QCOMPARE(Call(bed, "+49222"), 0);
    QVERIFY(bed.Commands(
        {"fault StopPlay status 1", "fault SetAmplifiersDefault status 1", "fault SetOutputType status 1"}));
    bed.ForgetRecords();
    QVERIFY(bed.Command("hangup") && bed.WaitForLog("EMERGENCY GSM CALL SUCCESFULLY STOPPED"));
    VERIFY_IN_ORDER(bed.Events(), teardown);
    VERIFY_IN_ORDER(bed.LogTexts(), {"2 Failed to request SoundManager->SetAmplifiersDefault(1)",
                                     "2 Failed to request audioOutCtl->SetOutputType(1)",
                                     "4 [OutputType] Successfully restored OutputType=1",
                                     "2 Failed to request SoundManager->StopPlay(gsmvoice)"});

    // Without a sound manager nothing is restored, and the call counts as going on.
    QVERIFY(bed.Commands({"fault StopPlay clear", "fault SetAmplifiersDefault clear", "fault SetOutputType clear"}));
    QCOMPARE(Call(bed, "+49222"), 0);
    bed.ForgetRecords();
    QVERIFY(bed.Commands({"daemon leave sound", "hangup"}) && bed.WaitForLog("Can't create SoundManagerProxy"));
    QCOMPARE(bed.Events("phone "), QStringList{"phone VoiceCall(0)"});
    QCOMPARE(bed.Events("-> "), QStringList());
    QCOMPARE(Call(bed, "+49222"), -55);
    QVERIFY(bed.Commands({"daemon return sound", "modem drop"}) && bed.WaitForEvent("phone PhoneStatus(2)"));
    QCOMPARE(Call(bed, "+49222"), 0);
}

void CallTest::loop_data()
{
    QTest::addColumn<QStringList>("numbers"); ///< their ends tell the device what becomes of them
    QTest::addColumn<QStringList>("called");
    QTest::addColumn<QStringList>("signalled");
    QTest::addColumn<QStringList>("log");

    const QString over = "4 Contact Loop is over!";
    QTest::newRow("third answers") << QStringList{"+49-reject", "+49-unreachable", "+49-answer", "+49-reject"}
                                   << QStringList{"+49-reject", "+49-unreachable", "+49-answer"}
                                   << QStringList{"phone VoiceCall(0)", "phone VoiceCall(0)", "phone VoiceCall(2)"}
                                   << QStringList{"2 Succesfully started Voice Call Loop with +49-reject",
                                                  "4 Call Rejected",
                                                  "4 Contact Loop index: 1",
                                                  "2 Gsm phone call TERMINATED",
                                                  "4 Starting new call...",
                                                  "1 Error making call (Call)",
                                                  "4 Call Rejected",
                                                  "4 Contact Loop index: 2",
                                                  "2 Gsm phone call ANSWERED by receiver"};
    QTest::newRow("none reachable") << QStringList{"+49-unreachable", "+49-unreachable"}
                                    << QStringList{"+49-unreachable", "+49-unreachable"}
                                    << QStringList{"phone VoiceCall(0)", "phone VoiceCall(0)"}
                                    << QStringList{"2 Impossible to start the Voice Call Loop with +49-unreachable",
                                                   "4 Contact Loop index: 1", over};
    QTest::newRow("one rejects") << QStringList{"+49-reject"} << QStringList{"+49-reject"}
                                 << QStringList{"phone VoiceCall(0)"} << QStringList{"4 Call Rejected", over};
    QTest::newRow("nobody") << QStringList() << QStringList() << QStringList() << QStringList{over};
}

void CallTest::loop()
{
    QFETCH(QStringList, numbers);
    QFETCH(QStringList, called);
    QFETCH(QStringList, log);

    TestBed bed;
    QVERIFY(bed.BringUp());
    for (const QString& number : std::as_const(numbers))
        QVERIFY(bed.Command("number " + number + ' ' + number.section('-', 1)));
    QCOMPARE(CallLoop(bed, numbers), 0);
    QCOMPARE(bed.Events(), QStringList()); // not at once
    bed.PassTime(LoopStartMs);
    QVERIFY(bed.WaitForLog(log.last().mid(2)));

    QStringList dialled;
    for (const QString& number : std::as_const(called))
        dialled.append(Dial(number));
    QCOMPARE(bed.Events("-> gsm Call("), dialled);
    QTEST(bed.Events("phone "), "signalled");
    VERIFY_IN_ORDER(bed.LogTexts(), log);
    QVERIFY(bed.LogTexts(9).contains("9 Gsm phone start call loop"));

    // The loop is over in any case: another is taken.
    if (bed.DeviceState()["call"] != "none") {
        QVERIFY(bed.Command("hangup") && bed.WaitForEvent("phone VoiceCall(0)", 3));
    }
    bed.ForgetRecords();
    QCOMPARE(CallLoop(bed, {"+49-last"}), 0);
    bed.PassTime(LoopStartMs);
    QVERIFY(bed.WaitForEvent("phone VoiceCall(2)"));
    QCOMPARE(bed.Events("-> gsm Call("), QStringList{Dial("+49-last")});
}

/// A list that is replaced before its start: both starts run, on the second list, however long the first was.
void CallTest::loopReplaced()
{
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Command("number +491 no-answer"));
    QCOMPARE(CallLoop(bed, {"+497", "+498", "+499"}), 0);
    QCOMPARE(CallLoop(bed, {"+491"}), 0);
    bed.PassTime(LoopStartMs);
    QVERIFY(bed.WaitForLog("Contact Loop is over!"));
    QCOMPARE(bed.Events("-> gsm Call("), QStringList{Dial("+491")});
    VERIFY_IN_ORDER(bed.LogTexts(),
                    {"2 Succesfully started Voice Call Loop with +491", "2 Already an outgoing call in progress!",
                     "2 Impossible to start the Voice Call Loop with +491", "4 Call Rejected",
                     "4 Contact Loop is over!"});

    QVERIFY(bed.Command("hangup") && bed.WaitForEvent("phone VoiceCall(0)", 2));
    QCOMPARE(CallLoop(bed, {"+491"}), 0);
    QCOMPARE(CallLoop(bed, {}), 0);
    bed.ForgetRecords();
    bed.PassTime(LoopStartMs);
    QCOMPARE(bed.Events(), QStringList());
    QCOMPARE(bed.LogTexts(), QStringList({"4 Contact Loop is over!", "4 Contact Loop is over!"}));
}

void CallTest::loopDuringIncoming()
{
    TestBed bed;
    bed.WriteContacts({{"+49111", MayCallIn}});
    // The audio fails, so that the call goes on ringing; the first hang-up does not get through.
    QVERIFY(bed.BringUp() &&
            bed.Commands({"fault PlayGsmVoice status 1 times 1", "fault CallHangupAll status 1 times 1"}));
    QVERIFY(bed.Command("ring +49111") && bed.WaitForLog("Failed to request SoundManager->PlayGsmVoice"));
    bed.ForgetRecords();
    QCOMPARE(CallLoop(bed, {"+49222"}), 0);
    bed.PassTime(LoopStartMs / 2);
    QVERIFY(bed.WaitForLog("GSM STREAM SUCCESFULLY STOPPED"));
    bed.PassTime(LoopStartMs / 2);
    QVERIFY(bed.WaitForEvent("phone VoiceCall(2)"));
    QCOMPARE(bed.Events("-> gsm "), QStringList({"-> gsm CallHangupAll()", "-> gsm CallHangupAll()", Dial("+49222")}));
    QVERIFY(bed.LogTexts().contains("2 Hanging up incoming call to start new emergency call"));
}

void CallTest::loopEndsWithModem()
{
    TestBed bed;
    QVERIFY(bed.BringUp() && bed.Command("number +49222 no-answer"));
    QCOMPARE(CallLoop(bed, {"+49222", "+49333"}), 0);
    bed.PassTime(LoopStartMs);
    QCOMPARE(CallLoop(bed, {"+49444"}), -55);
    QVERIFY(bed.LogTexts().contains("1 Call loop already in progress!"));
    bed.ForgetRecords();
    QVERIFY(bed.Command("modem drop") && bed.WaitForEvent("phone PhoneStatus(2)"));
    VERIFY_IN_ORDER(bed.Events(), QStringList{"<- gsm ModemOff()"} + teardown + QStringList{"phone PhoneStatus(0)"});
    QCOMPARE(bed.Events("-> gsm Call"), QStringList());
    QCOMPARE(CallLoop(bed, {"+49444"}), 0);
}

void CallTest::authorisedCaller()
{
    TestBed bed;
    bed.WriteContacts({{"+49110", MayCallIn}, {"+49111", MayCallIn | 1}});
    QVERIFY(bed.BringUp() && bed.Command("ring +49111") && bed.WaitForLog("GSM STREAM SUCCESFULLY STARTED"));
    QVERIFY(bed.Command("hangup") && bed.WaitForLog("GSM STREAM SUCCESFULLY STOPPED"));
    QCOMPARE(bed.Events(),
             (QStringList({Told("CallIncoming", "+49111"), "phone VoiceCall(1)"}) + incomingAudio +
              QStringList({"-> gsm CallAnswer()", Told("CallAnswered", "+49111"), Told("CallTerminated", "+49111")}) +
              teardown));
    VERIFY_IN_ORDER(bed.LogTexts(9), {"2 Gsm phone call INCOMING", "4 LineIdentification: +49111",
                                      "9 Waiting 3 s before answering call...", "5 Gsmd->CallAnswer() request success",
                                      "4 GSM STREAM SUCCESFULLY STARTED", "2 Gsm phone call TERMINATED",
                                      "4 GSM STREAM SUCCESFULLY STOPPED"});
}

void CallTest::callersTurnedAway_data()
{
    QTest::addColumn<QString>("number");
    QTest::addColumn<bool>("database");
    QTest::newRow("stranger") << "+49999" << true;
    QTest::newRow("other spelling") << "0049111" << true;
    QTest::newRow("longer") << "+491110" << true;
    QTest::newRow("known, but may not") << "+49112" << true;
    QTest::newRow("no contacts") << "+49111" << false;
}

void CallTest::callersTurnedAway()
{
    QFETCH(QString, number);
    QFETCH(bool, database);
    TestBed bed;
    if (database)
        bed.WriteContacts({{"+49111", MayCallIn}, {"+49112", 0x7f & ~MayCallIn}});
    QVERIFY(bed.BringUp() && bed.Command("ring " + number));
    QVERIFY(bed.WaitForLog("GSM STREAM SUCCESFULLY STOPPED"));
    VERIFY_IN_ORDER(bed.Events(), {"phone VoiceCall(1)", "-> gsm CallHangup()", "phone VoiceCall(0)"});
    QVERIFY(!bed.Events().contains("-> gsm CallAnswer()"));
    QStringList log = {"4 LineIdentification: " + number, "1 Error loading contacts",
                       QString("2 Call from unauthorized user (%1): won't answer").arg(number),
                       "5 Gsmd->CallHangup() request success", "4 GSM STREAM SUCCESFULLY STARTED"};
    if (database)
        log.removeAt(1);
    VERIFY_IN_ORDER(bed.LogTexts(), log);
}

void CallTest::answerFails()
{
    TestBed bed;
    bed.WriteContacts({{"+49111", MayCallIn}});
    QVERIFY(bed.BringUp() && bed.Commands({"fault CallAnswer status 1", "ring +49111"}));
    QVERIFY(bed.WaitForLog("GSM STREAM SUCCESFULLY STOPPED"));
    VERIFY_IN_ORDER(bed.Events(), QStringList{"-> gsm CallAnswer()"} + teardown);
    VERIFY_IN_ORDER(bed.LogTexts(), {"2 Can't answer incoming call", "2 Gsm phone call TERMINATED"});
}

QTEST_GUILESS_MAIN(CallTest)

#include "CallTest.moc"
