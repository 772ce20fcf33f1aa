#include "BusValues.h"
#include "Names.h"
#include "Scenario.h"

#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <memory>

namespace
{

struct Peer {
    const char* service;
    const char* object;
    const char* interface;
};

const QMap<QString, Peer> peers = {
    {"gsm", {Names::GsmService, Names::GsmObject, Names::GsmInterface}},
    {"sound", {Names::SoundManagerService, Names::SoundManagerObject, Names::SoundManagerInterface}},
    {"audio-out", {Names::AudioOutCtlService, Names::AudioOutCtlObject, Names::AudioOutCtlInterface}},
    {"audio-in", {Names::AudioInCtlService, Names::AudioInCtlObject, Names::AudioInCtlInterface}},
};

// Expected events come at once, unwanted ones in an hour.
constexpr DeviceTimes times = {10, 10, 3600000, 3600000, 3600000};

}

/// The simulated device in this process, called over the bus, and the program as another process.
class SimulatorTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<Device> device;
    std::unique_ptr<Commands> commands;
    QStringList events;
    QStringList received;

    /// Executes a command, and prints why if it was refused.
    bool Run(const QString& line)
    {
        const Commands::Result result = commands->Run(line);
        if (!result.done)
            qWarning("%s: %s", qPrintable(line), qPrintable(result.text));
        return result.done;
    }
    QString State(const char* key) { return device->State().value(key).toString(); }

    static QDBusPendingCall Send(const QString& peer, const QString& method, const QVariantList& arguments = {},
                                 const QString& interface = {})
    {
        const Peer& to = peers[peer];
        QDBusMessage request = QDBusMessage::createMethodCall(to.service, to.object,
                                                              interface.isEmpty() ? to.interface : interface, method);
        request.setArguments(arguments);
        return QDBusConnection::sessionBus().asyncCall(request);
    }

    /// Both ends are in this thread, so the wait must run the event loop.
    static QDBusMessage Ask(const QString& peer, const QString& method, const QVariantList& arguments = {},
                            const QString& interface = {})
    {
        const QDBusPendingCall call = Send(peer, method, arguments, interface);
        return QTest::qWaitFor([&] { return call.isFinished(); }) ? QDBusPendingReply<>(call).reply() : QDBusMessage();
    }

    static int Status(const QString& method, const QVariantList& arguments = {})
    {
        return Ask("gsm", method, arguments).arguments().value(0, -1).toInt();
    }

    void Register()
    {
        QCOMPARE(Status("ModemSetEnabled", {true}), 0);
        QTRY_COMPARE(State("modem"), "registered");
    }

private Q_SLOTS:
    void OnSignal(const QDBusMessage& message)
    {
        received.append(message.member() + QLatin1Char(' ') + message.signature());
    }

    void init()
    {
        device = std::make_unique<Device>(times);
        commands = std::make_unique<Commands>(*device);
        QCOMPARE(device->Join(), QString());
        events.clear();
        received.clear();
        connect(device.get(), &Device::Event, this, [this](const QString& text) { events.append(text); });
    }

    void cleanup()
    {
        commands.reset();
        device.reset();
    }

    void refusals_data()
    {
        QTest::addColumn<QString>("why");
        const std::pair<const char*, const char*> rows[] = {
            {"dance", "no command \"dance\""},
            {"sim in out", "usage: sim in|out"},
            {"sim half", "in, out"},
            {"signal 256", "0 to 255"},
            {"ring 1", "not registered"},
            {"sms 1 hello", "not registered"},
            {"hangup", "no call"},
            {"modem drop", "the modem is off"},
            {"number 1 laughs", "unreachable"},
            {"daemon leave radio", "audio-out"},
            {"daemon return", "on the bus already"},
            {"fault Dance silent", "no service"},
            {"fault Call status x", "usage: fault"},
            {"fault Call delay -1", "usage: fault"},
            {"fault Call error plain", "usage: fault"},
            {"fault Call silent times 0", "usage: fault"},
            {"sms 1 \"open", "quote"},
        };
        for (const auto& [line, why] : rows)
            QTest::newRow(line) << why;
    }

    void refusals()
    {
        const QVariantMap before = device->State();
        const Commands::Result result = commands->Run(QTest::currentDataTag());
        QFETCH(QString, why);
        QVERIFY(!result.done);
        QVERIFY2(result.text.contains(why), qPrintable(result.text));
        QCOMPARE(device->State(), before);
        QCOMPARE(events, QStringList());
    }

    void methods_data()
    {
        const QMap<QString, QVariant> values = {{"s", "1"}, {"b", true}, {"y", QVariant::fromValue<uchar>(2)},
                                                {"i", 3},   {"u", 2U},   {"d", 0.25}};
        QTest::addColumn<QString>("peer");
        QTest::addColumn<QVariantList>("arguments");
        QTest::addColumn<QString>("answer");
        for (const QString& peer : peers.keys()) {
            const InterfaceDescription description = InterfaceDescription::BuiltIn(peers[peer].interface);
            for (const QString& method : description.Methods().keys()) {
                QVariantList arguments;
                for (const QString& type : description.Methods()[method].in)
                    arguments.append(values[type]);
                QTest::newRow(qPrintable(method))
                    << peer << arguments << description.Methods()[method].out.join(QString());
            }
        }
    }

    /// Arguments and answers have the right types, with and without a fault. Calls with other arguments are refused and
    /// not recorded.
    void methods()
    {
        const QString method = QTest::currentDataTag();
        QFETCH(QString, peer);
        QFETCH(QVariantList, arguments);
        QFETCH(QString, answer);

        QCOMPARE(Ask(peer, method, arguments).signature(), answer);
        QVERIFY(Run("fault " + method + " status -7 times 1"));
        const QDBusMessage faulty = Ask(peer, method, arguments);
        QCOMPARE(faulty.signature(), answer);
        QCOMPARE(faulty.arguments().at(0).toInt(), -7);
        QCOMPARE(device->History().size(), 2);

        QCOMPARE(Ask(peer, method, arguments + QVariantList{1}).errorName(), "org.freedesktop.DBus.Error.InvalidArgs");
        QCOMPARE(device->History().size(), 2);
    }

    void descriptions()
    {
        for (const QString& peer : peers.keys()) {
            const QString offered =
                Ask(peer, "Introspect", {}, "org.freedesktop.DBus.Introspectable").arguments().value(0).toString();
            const QString name = peers[peer].interface;
            const auto description = InterfaceDescription::Read(offered, name);
            QVERIFY2(description, qPrintable(offered));
            QCOMPARE(InterfaceDescription::BuiltIn(name).MissingIn(*description), QStringList());
            QCOMPARE(Ask(peer, "Dance").errorName(), "org.freedesktop.DBus.Error.UnknownMethod");
        }
    }

    void differences()
    {
        const InterfaceDescription contract = InterfaceDescription::BuiltIn(peers["gsm"].interface);
        QString other = "<node><interface name=\"a.b\"><method name=\"Call\"/></interface>\n" + contract.Element();
        other.replace("\"CallAnswer\"", "\"Answer\"").replace("<signal name=\"ModemOff\"/>", "");
        other.replace("name=\"Present\" type=\"b\"", "name=\"Present\" type=\"i\"");
        other.replace("\"SignalQuality\" type=\"y\"", "\"SignalQuality\" type=\"u\"");
        QVERIFY(!InterfaceDescription::Read(other, contract.Name())); // not well-formed
        const auto offered = InterfaceDescription::Read(other + "</node>", contract.Name());
        QVERIFY(offered);
        QCOMPARE(contract.MissingIn(*offered),
                 (QStringList{"no method CallAnswer", "method IsSimPresent takes () and answers (ii), not () and (ib)",
                              "no signal ModemOff", "signal SignalQuality has (u), not (y)"}));
    }

    void gsmSignals()
    {
        QVERIFY(QDBusConnection::sessionBus().connect(QString(), Names::GsmObject, peers["gsm"].interface, QString(),
                                                      this, SLOT(OnSignal(QDBusMessage))));
        QVERIFY(Run("daemon leave") && Run("daemon return"));
        Register();
        QVERIFY(Run("ring 1") && Run("hangup") && Run("sms 1 hello"));
        QCOMPARE(Status("Call", {"2"}), 0);
        QVERIFY(Run("reject"));
        // An unanswered outgoing call ends as rejected, whoever hangs up, unless by CallHangupAll.
        for (const char* hangup : {"CallHangup", "CallHangupAll"}) {
            QCOMPARE(Status("Call", {"3"}), 0);
            QCOMPARE(Status(hangup), 0);
        }
        QCOMPARE(Status("Call", {"3"}), 0);
        QVERIFY(Run("answer") && Run("modem drop"));
        const QStringList sent = {"ModemAdded s",           "ModemPowered ",      "ModemRegistered ",
                                  "SignalQuality y",        "CallIncoming a{sv}", "CallTerminated a{sv}",
                                  "MessageReceived sa{sv}", "CallRejected a{sv}", "CallRejected a{sv}",
                                  "CallTerminated a{sv}",   "CallAnswered a{sv}", "ModemOff "};
        QTRY_COMPARE(received, sent);
    }

    void power()
    {
        QVERIFY(Run("sim out"));
        QCOMPARE(Status("ModemSetEnabled", {true}), 0);
        QTRY_COMPARE(State("modem"), "on");
        QCOMPARE(Ask("gsm", "IsSimPresent").arguments(), (QVariantList{0, false}));
        QCOMPARE(Status("SendSms", {"1", "text"}), 1);
        QVERIFY(Run("sim in"));
        QTRY_COMPARE(State("modem"), "registered");
        QCOMPARE(Ask("gsm", "ModemGetStatus").arguments(), (QVariantList{0, 2}));

        QVERIFY(Run("modem silent"));
        events.clear();
        QVERIFY(Run("signal 90"));
        QCOMPARE(events, QStringList());
        QVERIFY(Run("modem normal"));
        QCOMPARE(events, QStringList{"<- gsm SignalQuality(90)"});
        QCOMPARE(Ask("gsm", "SignalStrength").arguments(), (QVariantList{0, 90}));

        QVERIFY(Run("ring 1"));
        events.clear();
        QVERIFY(Run("network lost"));
        QCOMPARE(events, (QStringList{"<- gsm CallTerminated({LineIdentification=\"1\"})", "<- gsm ModemPowered()"}));
        QVERIFY(Run("network found"));
        QTRY_COMPARE(State("modem"), "registered");

        // A power-on during power-down reverses it. Only the final state is reported, but the call is lost.
        QVERIFY(Run("ring 1"));
        QCOMPARE(Status("ModemSetEnabled", {false}), 0);
        events.clear();
        Register();
        QCOMPARE(State("call"), "none");
        QCOMPARE(events.filter("<-"),
                 (QStringList{"<- gsm ModemPowered()", "<- gsm ModemRegistered()", "<- gsm SignalQuality(90)"}));

        events.clear();
        QVERIFY(Run("modem unplug") && !Run("modem unplug"));
        QCOMPARE(Status("ModemSetEnabled", {true}), 1);
        QVERIFY(Run("modem plug"));
        Register();
        QCOMPARE(events.filter("<- gsm Modem").mid(0, 2),
                 (QStringList{"<- gsm ModemOff()", "<- gsm ModemAdded(\"/com/quillmark/kova/gsmmanager/modem0\")"}));
    }

    void faults()
    {
        Register();
        QVERIFY(Run("fault Call error org.example.Failed times 2"));
        QCOMPARE(Ask("gsm", "Call", {"1"}).errorName(), "org.example.Failed");
        QCOMPARE(Ask("gsm", "Call", {"1"}).errorName(), "org.example.Failed");
        QCOMPARE(State("call"), "none");
        QVERIFY(Run("fault Call status 3"));
        QCOMPARE(Status("Call", {"1"}), 3);
        QCOMPARE(State("call"), "none");
        QCOMPARE(State("faults"), "Call status 3");
        QVERIFY(Run("fault Call clear"));
        QCOMPARE(Status("Call", {"1"}), 0);

        QVERIFY(Run("fault IsSimPresent status 9")); // and still the correct value
        QCOMPARE(Ask("gsm", "IsSimPresent").arguments(), (QVariantList{9, true}));

        QVERIFY(Run("fault PingRegistration silent") && Run("fault SendSms delay 3600000 times 1"));
        const QDBusPendingCall never = Send("gsm", "PingRegistration");
        const QDBusPendingCall late = Send("gsm", "SendSms", {"1", "text"});
        QCOMPARE(Status("CallHangupAll"), 0);
        QCOMPARE(State("sms-sent"), "1");
        QVERIFY(!never.isFinished() && !late.isFinished());
        QVERIFY(Run("fault SendSms delay 20"));
        QCOMPARE(Status("SendSms", {"1", "text"}), 0);
    }

    void leaveAndReturn()
    {
        Register();
        QVERIFY(Run("fault SendSms delay 3600000"));
        QCOMPARE(Status("Call", {"1"}), 0);
        const QDBusPendingCall pending = Send("gsm", "SendSms", {"1", "text"});
        QTRY_COMPARE(State("sms-sent"), "1");
        events.clear();
        QVERIFY(Run("daemon leave"));
        QTRY_VERIFY(pending.isFinished());
        QVERIFY(pending.isError());
        QCOMPARE(Ask("gsm", "CallHangup").errorName(), "org.freedesktop.DBus.Error.ServiceUnknown");
        QVERIFY(!Run("daemon leave") && !Run("sms 1 hello"));
        QVERIFY(Run("signal 50"));
        QCOMPARE(events, QStringList());

        QVERIFY(Run("daemon return"));
        QCOMPARE(events.size(), 1); // ModemAdded
        QCOMPARE(State("modem"), "registered");
        QCOMPARE(State("call"), "dialling");
        QCOMPARE(Status("CallHangup"), 0);

        // The name has another owner.
        QVERIFY(Run("daemon leave sound"));
        QVERIFY(QDBusConnection::sessionBus().registerService(Names::SoundManagerService));
        const QString problem = commands->Run("daemon return sound").text;
        QVERIFY2(problem.contains(Names::SoundManagerService), qPrintable(problem));
        QVERIFY(QDBusConnection::sessionBus().unregisterService(Names::SoundManagerService));
        QVERIFY(Run("daemon return sound"));
    }

    void scenarios_data()
    {
        QTest::addColumn<QString>("problem"); // a part of it, or "none" if the scenario succeeds
        QTest::newRow("# nothing\n\n") << "nothing to play";
        QTest::newRow("signal 5\nsim half") << ":2: \"half\" is none of";
        QTest::newRow("wait soon") << ":1: usage: wait MS";
        QTest::newRow("expect within x y") << ":1: usage: expect";
        QTest::newRow("expect within 5") << ":1: usage: expect";
        QTest::newRow("never") << ":1: usage: never";
        QTest::newRow("phone Dance") << ":1: the phone has no method";
        QTest::newRow("phone VoiceCallMake") << ":1: VoiceCallMake takes";
        QTest::newRow("phone ForcePhoneOff maybe") << ":1: ForcePhoneOff takes";
        QTest::newRow("quit") << ":1: a scenario ends";
        QTest::newRow("sim out\n\nring 1") << ":3: refused: the modem is not registered";
        QTest::newRow("expect within 10 earthquake") << ":1: did not happen: earthquake";
        QTest::newRow("phone GetStatus\nexpect x") << ":2: the phone service failed GetStatus";
        QTest::newRow("never ModemAdded\ndaemon leave\ndaemon return") << ":3: must never happen: <- gsm ModemAdded";
        QTest::newRow("daemon leave\ndaemon return\nexpect ModemAdded\nexpect within 10 ModemAdded") << ":4: did not";
        QTest::newRow("daemon leave\nwait 5\ndaemon return\nexpect gsm ModemAdded(\"/com") << "none";
    }

    void scenarios()
    {
        QTemporaryDir folder;
        QFile file(folder.filePath("test.scenario"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(QTest::currentDataTag()) >= 0);
        file.close();

        const QVariantMap before = device->State();
        Scenario scenario(*device, *commands);
        QSignalSpy ended(&scenario, &Scenario::Ended);
        QString outcome = scenario.Load(file.fileName());
        QCOMPARE(device->State(), before);
        if (outcome.isEmpty()) {
            scenario.Start();
            QTRY_COMPARE(ended.size(), 1);
            outcome = ended.at(0).at(0).toString();
        }
        QFETCH(QString, problem);
        QVERIFY2(outcome.isEmpty() ? problem == "none" : outcome.contains(problem), qPrintable(outcome));
    }

    void program()
    {
        const auto run = [](const QStringList& arguments) {
            QProcess program;
            program.setProcessChannelMode(QProcess::MergedChannels);
            program.start(KOVA_BUILD_DIR "/kova-simulator", arguments);
            return program.waitForFinished() ? qMakePair(program.exitCode(), QString(program.readAll()))
                                             : qMakePair(-1, QString());
        };
        QCOMPARE(run({"--dance"}).first, 2);
        QCOMPARE(run({"send"}).first, 2);
        QCOMPARE(run({"--answer", "soon"}).first, 2);
        QCOMPARE(run({"play", "/nowhere/x.scenario"}).first, 2);
        QCOMPARE(run({"send", "state"}).first, 3);
        QVERIFY(run({}).second.contains("taken"));
        QCOMPARE(run({}).first, 3);
        cleanup();

        QProcess simulator;
        simulator.start(KOVA_BUILD_DIR "/kova-simulator", {"--quiet"});
        simulator.write("sim out\nnumber " + QByteArray(100000, '1') +
                        " answer\nsignal 300\nsim out again\nnetwork lost");
        simulator.closeWriteChannel();
        QByteArray output;
        QTRY_VERIFY((output += simulator.readAll()).count("refused: ") == 3);
        QVERIFY2(output.startsWith("ready\n") && output.contains("at most"), output);
        // The last line has no line end and is executed nevertheless. The device goes on after the end of its input.
        QTRY_VERIFY(run({"send", "state"}).second.contains("network: \"lost\""));
        QCOMPARE(run({"send", "number", "a b", "answer"}).first, 0);
        QCOMPARE(run({"send", "fault", "Call", "status", "-5"}), qMakePair(0, QString()));
        QCOMPARE(run({"send", "hangup"}), qMakePair(1, QString("there is no call\n")));

        QProcess log;
        log.start(KOVA_BUILD_DIR "/kova-simulator", {"send", "log"});
        QCOMPARE(Status("Call", {"1"}), -5);
        QTRY_COMPARE(log.bytesAvailable() > 0 ? log.peek(100) : QByteArray(), QByteArray("gsm Call(\"1\")\n"));
        simulator.terminate();
        QTRY_COMPARE(simulator.state(), QProcess::NotRunning);
        QCOMPARE(simulator.exitStatus(), QProcess::NormalExit);
        QCOMPARE(simulator.exitCode(), 0);
        QTRY_COMPARE(log.state(), QProcess::NotRunning);
    }
};

QTEST_GUILESS_MAIN(SimulatorTest)
#include "SimulatorTest.moc"
