#include "TestBed.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace
{

constexpr int LimitMs = 30000;
constexpr int QueueDelayMs = 1000;
constexpr int SimCheckMs = 20000;
constexpr char Program[] = KOVA_BUILD_DIR "/phonectl";

/// One run of phonectl.
class Ctl
{
public:
    explicit Ctl(const QStringList& arguments, const QByteArray& input = {})
    {
        process.start(QLatin1String(Program), arguments);
        process.write(input);
        process.closeWriteChannel();
    }

    /// Waits until a step is told on standard output.
    bool Tells(const QByteArray& text)
    {
        return QTest::qWaitFor([&] { return (out += process.readAllStandardOutput()).contains(text); }, LimitMs);
    }

    /// @return the exit status, -1 when it does not end or crashes.
    int End()
    {
        if (!QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, LimitMs))
            process.kill();
        out += process.readAllStandardOutput();
        error += process.readAllStandardError();
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }

    void Interrupt() { ::kill(static_cast<pid_t>(process.processId()), SIGINT); }

    /// What it wrote, if that is one line with one object; else an empty one.
    QJsonObject Json() const { return out.count('\n') == 1 ? QJsonDocument::fromJson(out).object() : QJsonObject(); }

    QStringList Steps() const
    {
        QStringList steps;
        for (const QJsonValue& step : Json().value("events").toArray())
            steps.append(step.toObject().value("event").toString());
        return steps;
    }

    QByteArray out;
    QByteArray error;

private:
    QProcess process;
};

/// Runs to the end; a failing comparison shows what it said.
QByteArray Said(const QStringList& arguments, const QByteArray& input = {})
{
    Ctl ctl(arguments, input);
    return QByteArray::number(ctl.End()) + ' ' + ctl.out + ctl.error;
}

}

class PhonectlTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { qputenv("KOVA_CONTACTS_DB", QFile::encodeName(folder.filePath("contacts.db"))); }
    void badInput_data();
    void badInput();
    void help();
    void serviceAbsent();
    void serviceStartedByTheBus();
    void status();
    void power();
    void messages();
    void calls();
    void callLoop();
    void followingEndsBeforeTheOperation();
    void accessPoint();
    void monitor();
    void contacts();
    void contactsDatabaseUnusable();

private:
    QTemporaryDir folder;
};

void PhonectlTest::badInput_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("named");
    const struct {
        QStringList arguments;
        const char* named;
    } rows[] = {
        {{}, "COMMAND"},
        {{"stauts"}, "did you mean 'status'"},
        {{"contacts"}, "list, add, remove"},
        {{"status", "now"}, "\"now\""},
        {{"status", "--wiat"}, "did you mean '--wait'"},
        {{"status", "--wait"}, "--wait has no meaning"},
        {{"status", "--json=1"}, "--json takes no value"},
        {{"status", "--timeout"}, "--timeout takes SECONDS"},
        {{"status", "--timeout", "soon"}, "\"soon\""},
        {{"status", "--timeout=nan"}, "\"nan\""},
        {{"force-off"}, "on|off is missing"},
        {{"force-off", "maybe"}, "on, off"},
        {{"call", ""}, "NUMBER \"\" is empty"},
        {{"call", "12x4"}, "'x'"},
        {{"call", "4+9"}, "'+'"},
        {{"call-loop", "110", "one"}, "NUMBER \"one\""},
        {{"call", "1\033[2J"}, "\\x1b"},
        {{"sms", "110"}, "TEXT is empty"}, // nor is there any on standard input
        {{"sms", "110", "on", "my", "way"}, "quotes"},
        {{"sms", "110", QString(39016, 'x')}, "39015"},
        {{"apn", "two words"}, "APN \"two words\""},
        {{"apn", "a", "u", "p", "--ask-password"}, "one of them"},
        {{"apn", "a", "--password-file", "f"}, "USER"},
        {{"apn", "a", "u", "--password-file", "/none"}, "\"/none\""},
        {{"contacts", "add", "Anna"}, "NUMBER \"Anna\""},
    };
    for (const auto& row : rows)
        QTest::newRow(qPrintable(row.arguments.join(' ').left(40))) << row.arguments << QByteArray(row.named);
}

/// Each is told to a person and to a script, before the bus or the contacts are touched.
void PhonectlTest::badInput()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, named);
    const QByteArray said = Said(arguments);
    QVERIFY2(said.startsWith("2 phonectl: ") && said.contains(named), said);

    Ctl script(QStringList{"--json"} + arguments);
    QCOMPARE(script.End(), 2);
    QCOMPARE(script.Json().value("exitStatus").toInt(), 2);
    QVERIFY(!script.Json().value("error").toString().isEmpty());
    QVERIFY(QDir(folder.path()).isEmpty());
}

/// Help names each command, and each command's help an example of it.
void PhonectlTest::help()
{
    const QByteArray general = Said({"--help"});
    for (const char* name : {"status", "enable", "disable", "force-off", "sms", "call", "call-loop", "apn", "monitor",
                             "contacts list", "contacts add", "contacts remove"}) {
        QVERIFY2(general.contains("\n  " + QByteArray(name)), name);
        const QByteArray own = Said(QStringList{"help"} + QString(name).split(' '));
        QVERIFY2(own.startsWith("0 usage: phonectl") && own.contains("\n  phonectl " + QByteArray(name)), own);
    }
    QCOMPARE(Said({"sms", "--help"}), Said({"help", "sms"}));
}

void PhonectlTest::serviceAbsent()
{
    const QByteArray said = Said({"call", "110"});
    QVERIFY2(said.startsWith("3 ") && said.contains("systemctl --user start phonemanager"), said);
    QVERIFY(Said({"enable", "--wait", "--json"}).startsWith("3 {\""));
}

/// A bus of its own, with an activation file.
void PhonectlTest::serviceStartedByTheBus()
{
    QVERIFY(QDir(folder.path()).mkpath("dbus-1/services"));
    QFile activation(folder.filePath("dbus-1/services/com.quillmark.kova.phonemanager.service"));
    QVERIFY(activation.open(QIODevice::WriteOnly));
    const QString pidFile = folder.filePath("pid");
    activation.write(QStringLiteral("[D-BUS Service]\nName=com.quillmark.kova.phonemanager\n"
                                    "Exec=/bin/sh -c 'echo $$ >%1; exec %2/phonemanager'\n")
                         .arg(pidFile, KOVA_BUILD_DIR)
                         .toUtf8());
    activation.close();

    QProcess session;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_DATA_HOME", folder.path());
    environment.insert("KOVA_CONFIG_FILE", folder.filePath("config.ini"));
    session.setProcessEnvironment(environment);
    session.start("dbus-run-session",
                  {"--", "sh", "-c", QStringLiteral("%1 status; kill $(cat %2)").arg(Program, pidFile)});
    QVERIFY(session.waitForFinished(LimitMs));
    const QByteArray said = session.readAllStandardOutput();
    QVERIFY2(said.startsWith("Modem       off\n"), said + session.readAllStandardError());
    QVERIFY(QDir(folder.filePath("dbus-1")).removeRecursively() && QFile::remove(pidFile));
}

void PhonectlTest::status()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    QCOMPARE(Said({"status"}), QByteArray("0 Modem       on\nNetwork     registered\nSignal      good (-71 dBm)\n"
                                          "SIM card    present\nAsked for   on\nForced off  no\n"));
    const struct {
        int reading;
        QString word;
        QJsonValue dBm;
    } signalRows[] = {{185, "good", -71},
                      {60, "excellent", -60},
                      {99, "fair", -99},
                      {113, "weak", -113},
                      {120, "weak", -120},
                      {0, "not reported", {}},
                      {121, "unclear (reading 121)", {}},
                      {255, "unclear (reading 255)", {}}};
    for (const auto& row : signalRows) {
        QVERIFY(bed.Command(QStringLiteral("signal %1").arg(row.reading)));
        QVERIFY(bed.WaitForLog(QStringLiteral("Gsm signal: %1").arg(row.reading)));
        Ctl ctl({"status", "--json"});
        QCOMPARE(ctl.End(), 0);
        QCOMPARE(ctl.Json().value("rssi").toInt(), row.reading);
        QCOMPARE(ctl.Json().value("signal").toString(), row.word);
        QCOMPARE(ctl.Json().contains("signalDbm") ? ctl.Json().value("signalDbm") : QJsonValue(), row.dBm);
    }
}

void PhonectlTest::power()
{
    TestBed bed;
    QVERIFY(bed.StartDevice() && bed.StartService());
    QVERIFY(Said({"sms", "110", "early"}).startsWith("1 phonectl: -57: "));

    Ctl on({"enable", "--wait"});
    QVERIFY(on.Tells("the modem is powered"));
    QVERIFY(bed.WaitForLog("Gsm modem REGISTERED"));
    bed.PassTime(SimCheckMs);
    QVERIFY(on.Tells("the SIM card is present") && on.Tells("registered to the network"));
    QCOMPARE(on.End(), 0);
    QVERIFY(bed.Settings().contains("enabled=1"));

    QVERIFY(Said({"force-off", "on", "--wait"}).contains("the modem is off"));
    QVERIFY(Said({"enable", "--wait"}).startsWith("1 phonectl: the modem stays off, it is forced off"));
    Ctl released({"force-off", "off", "--wait", "--json"});
    QCOMPARE(released.End(), 0);
    QCOMPARE(released.Steps(), QStringList({"powered", "registered"}));
    QCOMPARE(bed.DeviceState().value("modem").toString(), QString("registered"));
    Ctl off({"disable", "--wait", "--json"});
    QCOMPARE(off.End(), 0);
    QCOMPARE(off.Steps(), QStringList("off"));
    QCOMPARE(bed.DeviceState().value("modem").toString(), QString("off"));

    QVERIFY(bed.Command("fault ModemSetEnabled status 1"));
    QVERIFY(Said({"enable"}).startsWith("1 phonectl: -51: "));
}

void PhonectlTest::messages()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    Ctl sent({"sms", "--wait", "--json", "+4912345"}, "Grüße\n\n");
    QCOMPARE(sent.End(), 0);
    QCOMPARE(sent.Steps(), QStringList({"queued", "sent"}));
    QCOMPARE(sent.Json().value("identifier").toInt(), 1);
    QVERIFY(bed.WaitForEvent(R"(-> gsm SendSms("+4912345", "Grüße\x0a"))"));
    QCOMPARE(Said({"sms", "--raw", "--", "Anna", "-"}, "raw"), QByteArray("0 queued\n"));
    QVERIFY(bed.WaitForEvent(R"(-> gsm SendSms("Anna", "raw"))"));
    QVERIFY(Said({"sms", "110"}, "\xff").startsWith("2 phonectl: TEXT is not"));

    QVERIFY(bed.Command("fault SendSms status 7"));
    QVERIFY(Said({"sms", "--wait", "110", "x"}).contains("phonectl: the message is lost"));

    // Somebody else's message is before this one in the queue; one of the two is lost, nobody can say which.
    QVERIFY(bed.Command("fault SendSms status 7 times 1"));
    bed.Phone().QueueSms("111", "other").waitForFinished();
    Ctl ours({"sms", "--wait", "110", "x"});
    QVERIFY(ours.Tells("queued"));
    bed.PassTime(QueueDelayMs);
    QCOMPARE(ours.End(), 1);
    QVERIFY2(ours.out.contains("message 4 of the queue was lost") &&
                 ours.out.contains("message 5 of the queue was sent") && ours.error.contains("cannot be told"),
             ours.out + ours.error);
}

void PhonectlTest::calls()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    Ctl call({"call", "--wait", "*100#"});
    QVERIFY(call.Tells("dialling *100#") && call.Tells("answered"));
    QVERIFY(Said({"call", "110"}).startsWith("1 phonectl: -55: "));
    QVERIFY(bed.Command("hangup"));
    QVERIFY(call.Tells("the call has ended"));
    QCOMPARE(call.End(), 0);

    QVERIFY(bed.Command("number 110 reject"));
    QVERIFY(Said({"call", "--wait", "110"}).contains("phonectl: the call was not answered"));
    bed.Settle();
    QVERIFY(bed.Command("network lost"));
    QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
    QVERIFY(Said({"call", "110"}).startsWith("1 phonectl: -58: "));
}

void PhonectlTest::callLoop()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    QVERIFY(bed.Commands({"number 1 reject", "number 2 unreachable", "number 3 answer"}));
    Ctl loop({"call-loop", "--wait", "--json", "1", "2", "3"});
    QVERIFY(bed.WaitForEvent("phone VoiceCall(2)"));
    QVERIFY(bed.Command("hangup"));
    QCOMPARE(loop.End(), 0);
    QCOMPARE(loop.Json().value("number").toString(), QString("3"));
    QCOMPARE(loop.Steps(),
             QStringList({"dialling", "unanswered", "dialling", "unanswered", "dialling", "answered", "ended"}));

    const QByteArray said = Said({"call-loop", "--wait", "1", "2"});
    QVERIFY2(said.startsWith("1 ") && said.contains("none of the numbers answered"), said);
}

void PhonectlTest::followingEndsBeforeTheOperation()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    Ctl interrupted({"call", "--wait", "110"});
    QVERIFY(interrupted.Tells("answered"));
    interrupted.Interrupt();
    QCOMPARE(interrupted.End(), 130);
    QVERIFY2(interrupted.error.contains("goes on"), interrupted.error);
    QCOMPARE(bed.DeviceState().value("call").toString(), QString("active"));
    QVERIFY(bed.Command("hangup"));
    QVERIFY(bed.WaitForEvent("phone VoiceCall(0)"));

    QVERIFY(bed.Command("number 110 no-answer"));
    const QByteArray late = Said({"call", "--wait", "--timeout", "0.5", "110"});
    QVERIFY2(late.startsWith("4 ") && late.contains("timed out waiting for "), late);
    bed.Settle();
    QCOMPARE(bed.DeviceState().value("call").toString(), QString("dialling"));
    QVERIFY(bed.Command("reject"));

    QVERIFY(bed.Command("network lost"));
    QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
    Ctl orphan({"sms", "--wait", "110", "x"});
    QVERIFY(orphan.Tells("queued"));
    bed.StopService(SIGKILL);
    QCOMPARE(orphan.End(), 3);
    QVERIFY2(orphan.error.contains("left the bus"), orphan.error);
}

void PhonectlTest::accessPoint()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    QCOMPARE(Said({"apn", "internet", "me", "--password-file", "-"}, "secret word\r\nmore\n"),
             QByteArray("0 access point set\n"));
    QVERIFY(bed.WaitForEvent(R"(-> gsm GprsSetApn("internet", "me", "secret word"))"));
    QCOMPARE(Said({"apn", "internet"}), QByteArray("0 access point set\n"));
    QVERIFY(bed.WaitForEvent(R"(-> gsm GprsSetApn("internet", "", ""))"));
    QVERIFY(bed.Command("fault GprsSetApn status 3"));
    QVERIFY(Said({"apn", "internet"}).startsWith("1 phonectl: -54: "));
}

void PhonectlTest::monitor()
{
    TestBed bed;
    QVERIFY(bed.BringUp());
    Ctl text({"monitor"});
    Ctl json({"monitor", "--json"});
    QVERIFY(text.Tells("is on the bus") && json.Tells("\"present\":true"));
    QVERIFY(bed.Command("sms +4912345 \"a\tb\""));
    QVERIFY(text.Tells("SmsReceived  \"a\\x09b\" (") && json.Tells("\"signal\":\"SmsReceived\""));
    bed.StopService();
    QVERIFY(text.Tells("left the bus") && json.Tells("\"present\":false"));
    QVERIFY(bed.StartService());
    QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
    QVERIFY(text.Tells("PhoneStatus  registering") && json.Tells("\"meaning\":\"registering\""));
    text.Interrupt();
    json.Interrupt();
    QCOMPARE(text.End(), 0);
    QCOMPARE(json.End(), 0);
    QCOMPARE(text.out.count("is on the bus"), 2);
    for (const QByteArray& line : json.out.trimmed().split('\n'))
        QVERIFY2(QJsonDocument::fromJson(line).isObject(), line);
}

/// Round trip, and what the service makes of it.
void PhonectlTest::contacts()
{
    TestBed bed;
    qputenv("KOVA_CONTACTS_DB", QFile::encodeName(bed.ContactsPath()));
    QCOMPARE(Said({"contacts", "list"}), QByteArray("0 no contacts\n"));
    QVERIFY(Said({"contacts", "remove", "110"}).startsWith("1 "));
    QVERIFY(!QFile::exists(bed.ContactsPath()));

    QCOMPARE(Said({"contacts", "add", "+4912345", "Anna", "--may-call-in"}), QByteArray("0 added\n"));
    QCOMPARE(Said({"contacts", "add", "110"}), QByteArray("0 added\n"));
    const QByteArray again = Said({"contacts", "add", "+4912345", "Berta"});
    QVERIFY2(again.startsWith("1 ") && again.contains("\"+4912345\" is there already, as \"Anna\""), again);
    QCOMPARE(Said({"contacts", "list"}), QByteArray("0 +4912345  Anna  may call in\n110\n"));
    Ctl list({"contacts", "list", "--json"});
    QCOMPARE(list.End(), 0);
    QCOMPARE(list.Json().value("contacts").toArray().first().toObject(),
             QJsonObject({{"number", "+4912345"}, {"name", "Anna"}, {"flags", 16}, {"mayCallIn", true}}));

    QVERIFY(bed.BringUp());
    QVERIFY(bed.Commands({"ring 110"}));
    QVERIFY(bed.WaitForEvent("-> gsm CallHangup()"));
    QVERIFY(bed.WaitForEvent("phone VoiceCall(0)"));
    QVERIFY(bed.Commands({"ring +4912345"}));
    QVERIFY(bed.WaitForEvent("-> gsm CallAnswer()"));

    QCOMPARE(Said({"contacts", "remove", "+4912345"}), QByteArray("0 removed\n"));
    QCOMPARE(Said({"contacts", "list"}), QByteArray("0 110\n"));
}

void PhonectlTest::contactsDatabaseUnusable()
{
    QFile file(folder.filePath("text"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("no database at all, but long enough to look like one from afar");
    file.close();
    for (const QString& path : {file.fileName(), file.fileName() + "/contacts.db", folder.path()}) {
        qputenv("KOVA_CONTACTS_DB", QFile::encodeName(path));
        const QByteArray said = Said({"contacts", "add", "110"});
        QVERIFY2(said.startsWith("1 phonectl: contacts database \"" + QFile::encodeName(path) + '"'), said);
    }
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().startsWith("no database"));
    QVERIFY(file.remove());
}

QTEST_GUILESS_MAIN(PhonectlTest)
#include "PhonectlTest.moc"
