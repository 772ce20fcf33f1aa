#include "TestBed.h"

#include <QRegularExpression>
#include <QTest>

namespace
{

constexpr int AnswerTimeoutMs = 30000;
constexpr int LoopStartMs = 2000;
constexpr int NearlyMs = 5000; ///< margin for a busy machine
constexpr int MayCallIn = TestBed::MayCallIn;

const QStringList outgoingAudio = {"-> audio-out GetOutputType()",     "-> audio-out SetOutputType(2)",
                                   "-> audio-in SetInputSource(3)",    "-> sound GetAmplifiersDefault()",
                                   "-> sound SetAmplifiersDefault(2)", "-> sound PlayGsmVoice()"};
const QStringList incomingAudio = outgoingAudio.mid(3) + outgoingAudio.mid(0, 3);
/// The device starts with output type and amplifier mask 1.
const QStringList teardown = {"phone VoiceCall(0)", R"(-> sound StopPlay("gsmvoice", ""))",
                              "-> sound SetAmplifiersDefault(1)", "-> audio-out SetOutputType(1)"};

QString Dial(const QString& number)
{
    return QStringLiteral(R"(-> gsm Call("%1"))").arg(number);
}

/// A signal of the daemon about a call.
QString Reported(const QString& signal, const QString& number)
{
    return QStringLiteral(R"(<- gsm %1({LineIdentification="%2"}))").arg(signal, number);
}

}

/// Outgoing calls, the emergency loop, incoming calls.
class CallTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void outgoing()
    {
        TestBed bed;
        QVERIFY(bed.BringUp({"number +49222 no-answer"}));
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), 0);
        QVERIFY(bed.Command("answer") && bed.WaitForEvent("phone VoiceCall(2)"));
        bed.PassTime(3 * AnswerTimeoutMs); // An answered call is not hung up.
        QCOMPARE(bed.Ask("VoiceCallMake", "+49333"), -55);
        QVERIFY(bed.Command("hangup") && bed.WaitForLog("GSM CALL SUCCESFULLY STOPPED"));
        QCOMPARE(bed.Events(), (QStringList{Dial("+49222")} + outgoingAudio +
                                QStringList{Reported("CallAnswered", "+49222"), "phone VoiceCall(2)",
                                            Reported("CallTerminated", "+49222")} +
                                teardown));
        QCOMPARE(
            bed.LogTexts(),
            QStringList({"2 Gsm phone call MAKE", "5 Gsmd->Call(+49222) request success", "2 Call succesfully started",
                         "2 Waiting reply in 30 seconds...", "4 [OutputType] Successfully saved OutputType=1",
                         "4 [OutputType] Successfully set OutputType=2", "2 Gsm phone call ANSWERED by receiver",
                         "4 EMERGENCY GSM CALL SUCCESFULLY STARTED", "2 Gsm phone call MAKE",
                         "2 Already an outgoing call in progress!", "2 Gsm phone call TERMINATED",
                         "4 [OutputType] Successfully set OutputType=1",
                         "4 [OutputType] Successfully restored OutputType=1",
                         "4 EMERGENCY GSM CALL SUCCESFULLY STOPPED"}));
        QStringList traces = bed.LogTexts(9).filter("9 Dbus ");
        traces.replaceInStrings(QRegularExpression("^9 Dbus (.*) (a?sync) call: .*"), "\\1 \\2");
        QCOMPARE(traces,
                 QStringList({"Gsmd->Call async", "audioOutCtl->SetOutputType async",
                              "audioInCtl->SetInputSource async", "SoundManager->GetAmplifiersDefault() sync",
                              "SoundManager->SetAmplifiersDefault(AMPS_MASK_AUX) async",
                              "SoundManager->PlayGsmVoice async", "SoundManager->StopPlay(gsmvoice) async",
                              "SoundManager->SetAmplifiersDefault() async", "audioOutCtl->SetOutputType async"}));
        QCOMPARE(bed.Ask("VoiceCallMake", ""), 0); // Another call is possible. The number is passed on unchanged.
        QCOMPARE(bed.Events("-> gsm ").last(), Dial(""));
    }

    /// The hang-up is repeated until the call has ended.
    void nobodyAnswers()
    {
        TestBed bed;
        QVERIFY(bed.BringUp({"number +49222 no-answer", "fault CallHangup status 1 times 2"}));
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), 0);
        bed.PassTime(AnswerTimeoutMs - NearlyMs);
        QCOMPARE(bed.Events("-> gsm CallHangup()"), QStringList());
        for (int hangups : {1, 2, 3, 3}) {
            bed.PassTime(AnswerTimeoutMs);
            QCOMPARE(bed.Events("-> gsm CallHangup()").size(), hangups);
            QVERIFY(hangups < 3 || bed.WaitForEvent("phone VoiceCall(0)"));
        }
        VERIFY_IN_ORDER(bed.LogTexts(), {"2 Gsm phone outgoing call TIMEOUT", "1 Can't hungup outgoing call",
                                         "2 Gsm phone outgoing call TIMEOUT", "1 Can't hungup outgoing call",
                                         "5 Gsmd->CallHangup() request success", "2 Gsm phone call TERMINATED"});
    }

    void refused()
    {
        TestBed bed;
        bed.WriteSettings(TestBed::PhoneEnabled);
        QVERIFY(bed.StartService() && bed.StartDevice() && bed.WaitForLog("Gsm modem REGISTERED"));
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), -57);
        QVERIFY(bed.PassSimCheck() && bed.WaitForLog("Gsm signal: 71"));
        QVERIFY(bed.Command("network lost") && bed.WaitForLog("not checking sim since already 3"));
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), -58);
        QVERIFY(bed.Commands({"network found", "number +49222 unreachable"}) && bed.WaitForEvent("PhoneStatus(2)", 2));
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), -55);
        QCOMPARE(bed.Ask("VoiceCallMake", "+49333"), -55); // busy until the modem goes off
        QCOMPARE(bed.Events("-> gsm Call"), QStringList{Dial("+49222")});
        VERIFY_IN_ORDER(bed.LogTexts(), {"2 Sim is not present (or still not checked): can't make a call",
                                         "2 Gsm is not powered ON: can't make a call", "1 Error making call (Call)",
                                         "2 Already an outgoing call in progress!"});
        bed.ForgetRecords();
        QVERIFY(bed.Command("modem drop") && bed.WaitForEvent("phone PhoneStatus(2)"));
        QCOMPARE(bed.Events("-> sound SetAmp"), QStringList{"-> sound SetAmplifiersDefault(0)"}); // nothing saved
        QCOMPARE(bed.Ask("VoiceCallMake", "+49333"), 0);
    }

    void audioFails_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("line");
        QTest::addColumn<int>("outgoingRequests"); ///< number of requests that are still made
        QTest::addColumn<int>("incomingRequests");

        const auto row = [](const char* command, const char* line, int outgoing, int incoming) {
            QTest::newRow(command) << command << QString("2 ") + line << outgoing << incoming;
        };
        row("daemon leave audio-out", "Can't create AudioOutCtlProxy", 0, 3);
        row("fault GetOutputType status -1", "Can't read current OutputType", 1, 4);
        row("daemon leave audio-in", "Can't create AudioInCtlProxy", 2, 5);
        row("fault SetInputSource status 1", "Failed to request audioInCtl->SetInputSource(INPUT_SOURCE_GSM_EAR_%1)", 3,
            6);
        row("daemon leave sound", "Can't create SoundManagerProxy", 3, 0);
        row("fault GetAmplifiersDefault error com.example.Busy",
            "Failed to request SoundManager->GetAmplifiersDefault()", 4, 1);
        row("fault SetAmplifiersDefault status 1",
            "Failed to request SoundManager->SetAmplifiersDefault(AMPS_MASK_AUX)", 5, 2);
        row("fault PlayGsmVoice error com.example.Busy", "Failed to request SoundManager->PlayGsmVoice", 6, 3);
    }

    /// The audio set-up ends at the step that fails. The call goes on, and its teardown restores everything.
    void audioFails()
    {
        QFETCH(QString, command);
        QFETCH(QString, line);
        QFETCH(int, outgoingRequests);
        QFETCH(int, incomingRequests);
        const QStringList words = command.split(' ');
        const QString repair = words[0] == "fault" ? "fault " + words[1] + " clear" : "daemon return " + words[2];

        TestBed bed;
        const auto audioRequests = [&] { return bed.Events("-> ").filter(QRegularExpression("^-> (audio|sound)")); };
        const auto logged = [&](const char* source) {
            return bed.LogTexts().contains(line.contains("%1") ? line.arg(source) : line);
        };
        bed.WriteContacts({{"+49111", MayCallIn}});
        QVERIFY(bed.BringUp({command}));
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), -55);
        QCOMPARE(audioRequests(), outgoingAudio.mid(0, outgoingRequests));
        QVERIFY(logged("AUX"));

        QVERIFY(bed.Commands({repair, "hangup"}) && bed.WaitForLog("EMERGENCY GSM CALL SUCCESFULLY STOPPED"));
        QVERIFY(bed.Command(command));
        bed.ForgetRecords();
        QVERIFY(bed.Command("ring +49111") && bed.WaitForEvent("phone VoiceCall(1)"));
        QCOMPARE(audioRequests(), incomingAudio.mid(0, incomingRequests));
        QVERIFY(logged("MIC"));
        QCOMPARE(bed.Events("-> gsm"), QStringList()); // The call goes on ringing.

        QVERIFY(bed.Commands({repair, "hangup"}) && bed.WaitForLog("GSM STREAM SUCCESFULLY STOPPED"));
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), 0);
    }

    void teardownFails()
    {
        TestBed bed;
        QVERIFY(bed.BringUp({"number +49222 no-answer"}));
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), 0);
        QVERIFY(bed.Commands({"fault StopPlay status 1 times 1", "fault SetAmplifiersDefault status 1 times 1",
                              "fault SetOutputType status 1 times 1"}));
        bed.ForgetRecords();
        QVERIFY(bed.Command("hangup") && bed.WaitForLog("EMERGENCY GSM CALL SUCCESFULLY STOPPED"));
        QCOMPARE(bed.Events("phone ") + bed.Events("-> "), teardown);
        VERIFY_IN_ORDER(bed.LogTexts(), {"2 Failed to request SoundManager->SetAmplifiersDefault(1)",
                                         "2 Failed to request audioOutCtl->SetOutputType(1)",
                                         "4 [OutputType] Successfully restored OutputType=1",
                                         "2 Failed to request SoundManager->StopPlay(gsmvoice)"});

        // Without a sound manager nothing is restored, and the call flag stays set.
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), 0);
        bed.ForgetRecords();
        QVERIFY(bed.Commands({"daemon leave sound", "hangup"}) && bed.WaitForLog("Can't create SoundManagerProxy"));
        QCOMPARE(bed.Events("phone ") + bed.Events("-> "), QStringList{"phone VoiceCall(0)"});
        QCOMPARE(bed.Ask("VoiceCallMake", "+49222"), -55);
    }

    void loop_data()
    {
        QTest::addColumn<QStringList>("numbers"); ///< the device treats a number by its last word
        QTest::addColumn<int>("called");
        QTest::addColumn<QStringList>("log");

        const QString over = "4 Contact Loop is over!";
        QTest::newRow("third answers") << QStringList{"+49-reject", "+49-unreachable", "+49-answer", "+49-reject"} << 3
                                       << QStringList{"2 Succesfully started Voice Call Loop with +49-reject",
                                                      "4 Call Rejected",
                                                      "4 Contact Loop index: 1",
                                                      "2 Gsm phone call TERMINATED",
                                                      "4 Starting new call...",
                                                      "1 Error making call (Call)",
                                                      "4 Call Rejected",
                                                      "4 Contact Loop index: 2",
                                                      "2 Gsm phone call ANSWERED by receiver"};
        QTest::newRow("none reachable") << QStringList{"+49-unreachable", "+49-unreachable"} << 2
                                        << QStringList{"2 Impossible to start the Voice Call Loop with +49-unreachable",
                                                       "4 Contact Loop index: 1", over};
        QTest::newRow("one rejects") << QStringList{"+49-reject"} << 1 << QStringList{"4 Call Rejected", over};
        QTest::newRow("nobody") << QStringList() << 0 << QStringList{over};
    }

    void loop()
    {
        QFETCH(QStringList, numbers);
        QFETCH(int, called);
        QFETCH(QStringList, log);

        TestBed bed;
        QVERIFY(bed.BringUp());
        QStringList dialled;
        QStringList signalled;
        for (const QString& number : std::as_const(numbers)) {
            QVERIFY(bed.Command("number " + number + ' ' + number.section('-', 1)));
            dialled.append(Dial(number));
            signalled.append(number.endsWith("answer") ? "phone VoiceCall(2)" : "phone VoiceCall(0)");
        }
        QCOMPARE(bed.Ask("VoiceCallLoopMake", numbers), 0);
        QCOMPARE(bed.Events(), QStringList()); // The loop starts later.
        bed.PassTime(LoopStartMs);
        QVERIFY(bed.WaitForLog(log.last().mid(2)));
        QCOMPARE(bed.Events("-> gsm Call("), dialled.mid(0, called));
        QCOMPARE(bed.Events("phone "), signalled.mid(0, called));
        VERIFY_IN_ORDER(bed.LogTexts(), log);
        QVERIFY(bed.LogTexts(9).contains("9 Gsm phone start call loop"));

        // The loop is over in each case, so the next is accepted.
        if (bed.DeviceState()["call"] != "none")
            QVERIFY(bed.Command("hangup") && bed.WaitForEvent("phone VoiceCall(0)", 3));
        bed.ForgetRecords();
        QCOMPARE(bed.Ask("VoiceCallLoopMake", QStringList{"+49-last"}), 0);
        bed.PassTime(LoopStartMs);
        QVERIFY(bed.WaitForEvent("phone VoiceCall(2)"));
        QCOMPARE(bed.Events("-> gsm Call("), QStringList{Dial("+49-last")});
    }

    /// A second list replaces the first before its start. Both starts run, with the second list.
    void loopReplaced()
    {
        TestBed bed;
        QVERIFY(bed.BringUp({"number +491 no-answer"}));
        QCOMPARE(bed.Ask("VoiceCallLoopMake", QStringList{"+497", "+498", "+499"}), 0);
        QCOMPARE(bed.Ask("VoiceCallLoopMake", QStringList{"+491"}), 0);
        bed.PassTime(LoopStartMs);
        QVERIFY(bed.WaitForLog("Contact Loop is over!"));
        QCOMPARE(bed.Events("-> gsm Call("), QStringList{Dial("+491")});
        VERIFY_IN_ORDER(bed.LogTexts(),
                        {"2 Succesfully started Voice Call Loop with +491", "2 Already an outgoing call in progress!",
                         "2 Impossible to start the Voice Call Loop with +491", "4 Call Rejected",
                         "4 Contact Loop is over!"});

        QVERIFY(bed.Command("hangup") && bed.WaitForEvent("phone VoiceCall(0)", 2));
        QCOMPARE(bed.Ask("VoiceCallLoopMake", QStringList{"+491"}), 0);
        QCOMPARE(bed.Ask("VoiceCallLoopMake", QStringList()), 0);
        bed.ForgetRecords();
        bed.PassTime(LoopStartMs);
        QCOMPARE(bed.Events(), QStringList());
        QCOMPARE(bed.LogTexts(), QStringList({"4 Contact Loop is over!", "4 Contact Loop is over!"}));
    }

    void loopDuringIncoming()
    {
        TestBed bed;
        bed.WriteContacts({{"+49111", MayCallIn}});
        // Audio fails, so that the call goes on ringing, and the first hang-up is refused.
        QVERIFY(bed.BringUp({"fault PlayGsmVoice status 1 times 1", "fault CallHangupAll status 1 times 1"}));
        QVERIFY(bed.Command("ring +49111") && bed.WaitForLog("Failed to request SoundManager->PlayGsmVoice"));
        bed.ForgetRecords();
        QCOMPARE(bed.Ask("VoiceCallLoopMake", QStringList{"+49222"}), 0);
        bed.PassTime(LoopStartMs / 2);
        QVERIFY(bed.WaitForLog("GSM STREAM SUCCESFULLY STOPPED"));
        bed.PassTime(LoopStartMs / 2);
        QVERIFY(bed.WaitForEvent("phone VoiceCall(2)"));
        QCOMPARE(bed.Events("-> gsm "),
                 QStringList({"-> gsm CallHangupAll()", "-> gsm CallHangupAll()", Dial("+49222")}));
        QVERIFY(bed.LogTexts().contains("2 Hanging up incoming call to start new emergency call"));
    }

    void loopEndsWithModem()
    {
        TestBed bed;
        QVERIFY(bed.BringUp({"number +49222 no-answer"}));
        QCOMPARE(bed.Ask("VoiceCallLoopMake", QStringList{"+49222", "+49333"}), 0);
        bed.PassTime(LoopStartMs);
        QCOMPARE(bed.Ask("VoiceCallLoopMake", QStringList{"+49444"}), -55);
        QVERIFY(bed.LogTexts().contains("1 Call loop already in progress!"));
        bed.ForgetRecords();
        QVERIFY(bed.Command("modem drop") && bed.WaitForEvent("phone PhoneStatus(2)"));
        VERIFY_IN_ORDER(bed.Events(), QStringList{"<- gsm ModemOff()"} + teardown +
                                          QStringList{"phone PhoneStatus(0)", "-> gsm ModemSetEnabled(false)",
                                                      "-> gsm ModemSetEnabled(true)"});
        VERIFY_IN_ORDER(bed.LogTexts(), {"2 Gsm modem OFF", "2 Gsm phone call TERMINATED",
                                         "4 EMERGENCY GSM CALL SUCCESFULLY STOPPED", "4 RESET to OFF"});
        QCOMPARE(bed.Events("-> gsm Call"), QStringList());
        // So does an incoming call, here a stranger's that could not be hung up.
        QVERIFY(bed.Commands({"fault CallHangup status 1", "ring +49999"}));
        QVERIFY(bed.WaitForLog("Can't hungup outgoing call"));
        bed.ForgetRecords();
        QVERIFY(bed.Command("modem drop") && bed.WaitForEvent("phone PhoneStatus(0)"));
        QCOMPARE(bed.Events("phone VoiceCall"), QStringList{"phone VoiceCall(0)"});
        QCOMPARE(bed.Ask("VoiceCallLoopMake", QStringList{"+49444"}), 0);
    }

    void incoming_data()
    {
        QTest::addColumn<QString>("number");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QStringList>("events"); ///< between the ring and the teardown

        const QString answer = "-> gsm CallAnswer()";
        const QStringList answered = {"9 Waiting 3 s before answering call...", "5 Gsmd->CallAnswer() request success",
                                      "4 GSM STREAM SUCCESFULLY STARTED"};
        QTest::newRow("may call in") << "+49111" << QString() << answered
                                     << incomingAudio + QStringList{answer, Reported("CallAnswered", "+49111"),
                                                                    Reported("CallTerminated", "+49111")};
        QTest::newRow("answer fails") << "+49111"
                                      << "fault CallAnswer status 1" << QStringList{"2 Can't answer incoming call"}
                                      << incomingAudio + QStringList{answer};
        QTest::newRow("caller gives up") << "+49111"
                                         << "hangup" << QStringList{"2 Can't answer incoming call"}
                                         << incomingAudio + QStringList{Reported("CallTerminated", "+49111"), answer};
        for (const char* number : {"+49999", "0049111", "+491110", "+49112"})
            QTest::newRow(number)
                << number << QString()
                << QStringList{QString("2 Call from unauthorized user (%1): won't answer").arg(number),
                               "5 Gsmd->CallHangup() request success", "4 GSM STREAM SUCCESFULLY STARTED"}
                << QStringList{"-> gsm CallHangup()", Reported("CallTerminated", number)};
        QTest::newRow("no contacts") << "+49111"
                                     << "contacts"
                                     << QStringList{"1 Error loading contacts",
                                                    "2 Call from unauthorized user (+49111): won't answer"}
                                     << QStringList{"-> gsm CallHangup()", Reported("CallTerminated", "+49111")};
    }

    /// Only the exact number of a contact that may call in is answered.
    void incoming()
    {
        QFETCH(QString, number);
        QFETCH(QString, fault);
        QFETCH(QStringList, log);
        QFETCH(QStringList, events);
        TestBed bed;
        if (fault != "contacts")
            bed.WriteContacts({{"+49110", MayCallIn}, {"+49111", MayCallIn | 1}, {"+49112", 0x7f & ~MayCallIn}});
        QVERIFY(bed.BringUp(fault.startsWith("fault") ? QStringList{fault} : QStringList()));
        QVERIFY(bed.Command("ring " + number));
        if (fault == "hangup") // while the service waits before it answers
            QVERIFY(bed.WaitForEvent(incomingAudio.last()) && bed.Command(fault));
        if (log.contains("5 Gsmd->CallAnswer() request success"))
            QVERIFY(bed.WaitForLog("GSM STREAM SUCCESFULLY STARTED") && bed.Command("hangup"));
        QVERIFY(bed.WaitForLog("GSM STREAM SUCCESFULLY STOPPED"));
        const QStringList wanted =
            QStringList({Reported("CallIncoming", number), "phone VoiceCall(1)"}) + events +
            (events.contains("-> sound PlayGsmVoice()") ? teardown : QStringList(teardown.mid(0, 2)));
        QCOMPARE(bed.Events().mid(0, wanted.size()), wanted);
        VERIFY_IN_ORDER(bed.LogTexts(9), QStringList({"2 Gsm phone call INCOMING", "4 LineIdentification: " + number}) +
                                             log + QStringList{"2 Gsm phone call TERMINATED"});
    }
};

QTEST_GUILESS_MAIN(CallTest)
#include "CallTest.moc"
