#include "Names.h"
#include "TestBed.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>
#include <QXmlStreamReader>

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

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
        : Ctl(QLatin1String(Program), arguments, input)
    {
    }

    /// Runs a command line in shell syntax, without the name of the program.
    explicit Ctl(const char* command) : Ctl("sh", {"-c", "exec " + QLatin1String(Program) + ' ' + command}, {}) {}

    /// Gives the program a terminal as standard input, for Type().
    enum StandardInput { Terminal };
    Ctl(const QStringList& arguments, StandardInput) : terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0)
            qFatal("no terminal");
        process.setStandardInputFile(ptsname(terminal));
        process.start(QLatin1String(Program), arguments);
    }

    Ctl(const QString& program, const QStringList& arguments, const QByteArray& input)
    {
        process.start(program, arguments);
        process.write(input);
        process.closeWriteChannel();
    }

    /// Waits until a step is printed on standard output.
    bool Tells(const QByteArray& text)
    {
        return QTest::qWaitFor([&] { return (out += process.readAllStandardOutput()).contains(text); }, LimitMs);
    }

    /// Waits for the program's end. With --json, also checks that the output is one object, or one per line of monitor.
    /// @return whether the pattern matches the exit status (-1 if it crashed or did not end), a space and the output,
    /// in which the events of JSON are reduced to their names.
    bool Ends(const QString& pattern)
    {
        const bool ended = QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, LimitMs);
        const bool exited = ended && process.exitStatus() == QProcess::NormalExit;
        out += process.readAllStandardOutput();
        QString said = QString::number(exited ? process.exitCode() : -1) + ' ' + QString::fromUtf8(out) +
                       QString::fromUtf8(process.readAllStandardError());
        said.replace(QRegularExpression(R"(\{"elapsed":[^,]*,"event":("\w+")\})"), "\\1");
        const QRegularExpression wanted("\\A(?:" + pattern + ")\\z", QRegularExpression::DotMatchesEverythingOption);
        bool matches = wanted.match(said).hasMatch();
        if (process.arguments().contains("--json")) {
            const QList<QByteArray> lines = out.chopped(1).split('\n');
            matches &=
                lines.size() == 1 || process.arguments().contains("monitor") || process.arguments().contains("--watch");
            for (const QByteArray& line : lines)
                matches &= QJsonDocument::fromJson(line).isObject();
        }
        if (!matches)
            qWarning() << process.arguments() << "said" << said << "wanted" << pattern;
        return matches;
    }

    bool Type(const QByteArray& keys) const { return write(terminal, keys.constData(), keys.size()) == keys.size(); }
    void Interrupt() { ::kill(static_cast<pid_t>(process.processId()), SIGINT); }

private:
    const int terminal = -1;
    QProcess process;
    QByteArray out;
};

}

/// A GSM daemon with the wrong interface.
class WrongDaemon : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.quillmark.kova.gsminterface")

public Q_SLOTS:
    int Call(int number) { return number; }
    int CallAnswer() { return 0; }
};

class PhonectlTest : public QObject
{
    Q_OBJECT

    QTemporaryDir folder;

private Q_SLOTS:
    void init() { qputenv("KOVA_CONTACTS_DB", QFile::encodeName(folder.filePath("contacts.db"))); }

    /// Wrong usage is reported as text and as JSON, before the bus or the contacts are used.
    void badInput()
    {
        const std::pair<QStringList, QString> rows[] = {
            {{}, "COMMAND"},
            {{"stauts"}, "did you mean 'status'"},
            {{"status", "now"}, "\"now\""},
            {{"status", "--timeout"}, "--timeout takes SECONDS"},
            {{"status", "--timeout=nan"}, "\"nan\""},
            {{"force-off", "maybe"}, "on, off"},
            {{"call", ""}, "NUMBER \"\" is empty"},
            {{"call", "4+9"}, "'+'"},
            {{"call", "+49 (0)30"}, "leave out \"(0)\""},
            {{"contacts", "lst"}, "did you mean 'list'"},
            {{"call-loop", "110", "one"}, "NUMBER \"one\""},
            {{"call", "1\033[2J"}, "\\x1b"},
            {{"sms", "110"}, "TEXT is empty"}, // and so is standard input
            {{"sms", "110", QString(39016, 'x')}, "39015"},
            {{"apn", "a", "u", "p", "--ask-password"}, "one of them"},
            {{"apn", "a", "u", "--password-file", "/none"}, "\"/none\""},
            {{"contacts", "add", "Anna"}, "NUMBER \"Anna\""},
        };
        for (const auto& [arguments, named] : rows) {
            QVERIFY(Ctl(arguments).Ends("2 phonectl: .*" + QRegularExpression::escape(named) + ".*"));
            QVERIFY(Ctl(QStringList{"--json"} + arguments).Ends(R"(2 \{"error":".+","exitStatus":2\}\n.*)"));
            QVERIFY(QDir(folder.path()).isEmpty());
        }
        QVERIFY(Ctl({"sms", "110"}, "\xff").Ends("2 phonectl: TEXT is not.*"));
        QVERIFY(Ctl("sms 110 $(printf 'a\\377')").Ends("2 phonectl: argument 3 is not.*"));
        QVERIFY(Ctl("--version >/dev/full").Ends("1 phonectl: standard output: No space.*"));
        QVERIFY(Ctl("--version --json >/dev/full").Ends("1 phonectl: standard output: No space.*"));
        QVERIFY(Ctl("status >&-").Ends("1 phonectl: standard output: Bad.*|3 .*"));
        QVERIFY(Ctl({"help", "apn"}).Ends("0 usage: phonectl apn .*\n  phonectl apn .*"));
        QVERIFY(
            Ctl({"help", "contacts"}).Ends("0 usage: phonectl contacts list\\|add\\|remove .*contacts add NUMBER.*"));
    }

    /// The service that can be activated is on a bus of its own.
    void serviceAbsentOrStartedByTheBus()
    {
        QVERIFY(Ctl({"call", "110"}).Ends("3 .*systemctl --user start phonemanager.*"));
        QVERIFY(Ctl({"enable", "--wait", "--json"}).Ends("3 .*"));

        const QTemporaryDir data;
        QVERIFY(QDir(data.path()).mkpath("dbus-1/services"));
        QFile activation(data.filePath("dbus-1/services/com.quillmark.kova.phonemanager.service"));
        QVERIFY(activation.open(QIODevice::WriteOnly));
        activation.write(QStringLiteral("[D-BUS Service]\nName=com.quillmark.kova.phonemanager\n"
                                        "Exec=/bin/sh -c 'echo $$ >%1/pid; exec %2/phonemanager'\n")
                             .arg(data.path(), KOVA_BUILD_DIR)
                             .toUtf8());
        activation.close();

        QProcess session;
        session.start("env", {"XDG_DATA_HOME=" + data.path(), "KOVA_CONFIG_FILE=" + data.filePath("config.ini"),
                              "dbus-run-session", "--", "sh", "-c",
                              QStringLiteral("%1 status; kill $(cat %2/pid)").arg(Program, data.path())});
        QVERIFY(session.waitForFinished(LimitMs));
        const QByteArray said = session.readAllStandardOutput();
        QVERIFY2(said.startsWith("GSM daemon  not on the bus") &&
                     said.contains("\nNo sound    not on the bus: sound manager, "),
                 said + session.readAllStandardError());
    }

    void status()
    {
        TestBed bed;
        QVERIFY(bed.BringUp());
        QVERIFY(Ctl({"status", "--json"}).Ends(R"(0 .*"rssi":71,"signal":"good","signalDbm":-71,.*)"));
        Ctl watch({"status", "--watch", "--json"});
        QVERIFY(watch.Tells("\"rssi\":71"));
        for (const auto& [reading, shown] : {std::pair(185, "good (-71 dBm)"), std::pair(60, "excellent (-60 dBm)"),
                                             std::pair(0, "not reported"), std::pair(121, "unclear (reading 121)")}) {
            QVERIFY(bed.Command(QStringLiteral("signal %1").arg(reading)));
            QVERIFY(bed.WaitForLog(QStringLiteral("Gsm signal: %1").arg(reading)));
            const QString signal = "\nSignal      " + QRegularExpression::escape(shown);
            QVERIFY(Ctl({"status"})
                        .Ends("0 Modem       on\nNetwork     registered" + signal +
                              "\nSIM card    present\nAsked for   on\nForced off  no\n"));
        }
        QVERIFY(Ctl({"status", "--json"}).Ends(R"(0 .*"rssi":121,"signal":"unclear .reading 121.",.*)"));
        QVERIFY(watch.Tells("\"rssi\":121"));

        // The last values of a daemon that has left are not presented as current.
        QVERIFY(bed.Command("daemon leave") && watch.Tells("\"gsmDaemon\":false"));
        QVERIFY(Ctl({"status"}).Ends("0 GSM daemon  not on the bus.*\nModem       on\n.*"));
        QVERIFY(Ctl({"hangup"}).Ends("3 phonectl: the GSM daemon.*"));
        bed.StopService();
        QVERIFY(watch.Tells("{\"present\":false}"));
        watch.Interrupt();
        QVERIFY(watch.Ends("0 .*"));
    }

    /// The answer may contain any values.
    void settingThatIsNotStored()
    {
        TestBed bed;
        QVERIFY(bed.StartService());
        QVERIFY(Ctl({"enable"}).Ends("1 phonectl: -51: .* takes effect when the daemon appears\n"));
        bed.WriteSettings("[PHONE]\n# switched off in the workshop\nenabled=0\n");
        QVERIFY(bed.StartDevice());
        QVERIFY(Ctl({"enable"}).Ends("1 phonectl: the setting was not stored in .*: line 2 .*"));
        QVERIFY(Ctl({"disable"}).Ends("1 phonectl: the setting was not stored in .*: line 2 .*"));
    }

    void doctor()
    {
        qputenv("KOVA_CONTACTS_DB", QFile::encodeName(folder.filePath("contacts.db")));
        QVERIFY(Ctl({"doctor"}).Ends("1 .*FAILS    Service .*systemctl --user start.*FAILS    GSM daemon .*"));
        WrongDaemon wrong;
        QDBusConnection bus = QDBusConnection::sessionBus();
        QVERIFY(bus.registerObject(Names::GsmObject, &wrong, QDBusConnection::ExportAllSlots) &&
                bus.registerService(Names::GsmService));
        QVERIFY(Ctl({"doctor"}).Ends("1 .*FAILS    GSM daemon  .* Call[ (:][^;]*; .*CallHangup.*"));
        QVERIFY(bus.unregisterService(Names::GsmService));

        TestBed bed;
        QVERIFY(bed.BringUp());
        QVERIFY(Ctl({"doctor", "--json"}).Ends(R"(0 .*"failed":0,"notYet":1,.*contacts add NUMBER.*)"));
        bed.WriteContacts({{"110", 16}});
        QVERIFY(Ctl({"doctor"}).Ends("0 .*\n\nall holds\n"));

        bed.WriteSettings("[PHONE]\nenabled=1\n[DEVICES_SETUP]\ngprs-enabled=1\n[OTHER]\n# data\n");
        QVERIFY(bed.Commands({"signal 125", "daemon leave sound"}));
        bed.Settle();
        QVERIFY(
            Ctl({"doctor"})
                .Ends("1 .*FAILS    Settings .*line 6 .*FAILS    Signal  .*FAILS    Data link  .*ppp0.*FAILS    Sound "
                      "manager .*\n10 hold, 4 fail, 0 not yet\n"));

        // The other steps are still judged if the service is stuck in a remote call.
        QVERIFY(bed.Command("fault ModemSetEnabled silent"));
        bed.Phone().ForcePhoneOff(true);
        QVERIFY(bed.WaitForEvent("-> gsm ModemSetEnabled(false)"));
        // libfaketime is loaded before the sanitizer's library.
        const QString sanitizer = "ASAN_OPTIONS=" + qEnvironmentVariable("ASAN_OPTIONS") + ":verify_asan_link_order=0";
        QVERIFY(Ctl("env", {sanitizer, "faketime", "-m", "-f", "+0 x20", Program, "doctor"}, {})
                    .Ends("1 .*FAILS    Service .*does not answer.*holds    GSM daemon.*FAILS    Sound manager.*"));
        bed.StopService(SIGKILL);
    }

    void power()
    {
        TestBed bed;
        QVERIFY(bed.StartDevice() && bed.StartService());
        Ctl on({"enable", "--wait"});
        QVERIFY(on.Tells("the modem is powered"));
        QVERIFY(bed.WaitForLog("Gsm modem REGISTERED"));
        bed.PassTime(SimCheckMs);
        QVERIFY(on.Ends("0 .*the SIM card is present.*registered to the network.*"));

        QVERIFY(Ctl({"force-off", "on", "--wait"}).Ends("0 .*the modem is off.*"));
        QVERIFY(Ctl({"enable", "--wait"}).Ends("1 phonectl: the modem stays off, it is forced off.*"));
        QVERIFY(Ctl({"force-off", "off", "--wait", "--json"}).Ends(R"(0 .*"events":\["powered","registered"\].*)"));
        QVERIFY(Ctl({"disable", "--wait", "--json"}).Ends(R"(0 .*"events":\["off"\].*)"));
        QCOMPARE(bed.DeviceState().value("modem").toString(), QString("off"));
    }

    void messagesAndAccessPoint()
    {
        TestBed bed;
        QVERIFY(bed.BringUp());
        QVERIFY(Ctl({"sms", "--wait", "--json", "+4912345"}, "Grüße\n\n")
                    .Ends(R"(0 .*"events":\["queued","sent"\],.*"identifier":1,"parts":1\}\n)"));
        QVERIFY(bed.WaitForEvent(R"(-> gsm SendSms("+4912345", "Grüße\x0a"))"));
        for (const auto& [text, size] :
             {std::pair(QString(160, 'x'), "1,"), std::pair(QString(161, 'x'), "2,"),
              std::pair(QString(152, 'x') + "{" + QString(152, 'x'), "3,"), std::pair(QString(70, QChar(0x416)), "1,"),
              std::pair(QString(66, QChar(0x416)) + QString::fromUtf8("😀") + QString(66, QChar(0x416)), "3,")})
            QVERIFY(Ctl({"sms", "--json", "110", text}).Ends(".*\"parts\":" + QString(size) + ".*"));
        QVERIFY(bed.WaitForEvent("-> gsm SendSms", 6));
        QVERIFY(Ctl({"sms", "--raw", "--", "Anna", "-"}, "raw").Ends("0 queued\n"));
        QVERIFY(bed.WaitForEvent(R"(-> gsm SendSms("Anna", "raw"))"));

        QVERIFY(bed.Command("fault SendSms status 7"));
        QVERIFY(Ctl({"sms", "--wait", "110", "x"}).Ends("1 .*phonectl: the message is lost.*"));

        // Another client's message precedes this one in the queue. One of the two is lost, and it is unknown which.
        QVERIFY(bed.Command("fault SendSms status 7 times 1"));
        bed.Phone().QueueSms("111", "other").waitForFinished();
        Ctl ours({"sms", "--wait", "110", "x"});
        QVERIFY(ours.Tells("queued"));
        bed.PassTime(QueueDelayMs);
        QVERIFY(ours.Ends("1 .*message 9 of the queue was lost.*message 10 of the queue was sent.*it is unknown.*"));

        QVERIFY(Ctl({"apn", "internet", "me", "--password-file", "-"}, "a b\r\nmore\n").Ends("0 access point set\n"));
        QVERIFY(bed.WaitForEvent(R"(-> gsm GprsSetApn("internet", "me", "a b"))"));
        QVERIFY(bed.Command("fault GprsSetApn status 3"));
        QVERIFY(Ctl({"apn", "internet"}).Ends("1 phonectl: -54: .*"));
        QVERIFY(bed.WaitForEvent(R"(-> gsm GprsSetApn("internet", "", ""))"));
    }

    void calls()
    {
        TestBed bed;
        QVERIFY(bed.BringUp());
        Ctl interrupted({"call", "--wait", "110"});
        QVERIFY(interrupted.Tells("answered"));
        interrupted.Interrupt();
        QVERIFY(interrupted.Ends("130 .*goes on.*'phonectl hangup'.*"));
        QCOMPARE(bed.DeviceState().value("call").toString(), QString("active"));
        QVERIFY(Ctl({"hangup"}).Ends("0 .*the call has ended\n"));
        QVERIFY(bed.WaitForEvent("phone VoiceCall(0)"));
        QVERIFY(Ctl({"hangup", "--json"}).Ends("1 .*no call to hang up.*"));
        Ctl offered({"call", "--wait", "110"}, Ctl::Terminal);
        QVERIFY(offered.Tells("answered"));
        offered.Interrupt();
        QVERIFY(offered.Type("y\n"));
        QVERIFY(offered.Ends("130 .*the call has ended.*Hang up.*interrupted and hung up\n"));

        Ctl call({"call", "--wait", "* (100)-#"});
        QVERIFY(call.Tells("dialling *100#") && call.Tells("answered"));
        QVERIFY(Ctl({"call", "110"}).Ends("1 phonectl: -55: .*"));
        QVERIFY(bed.Command("hangup"));
        QVERIFY(call.Ends("0 .*the call has ended\n"));

        QVERIFY(bed.Commands({"number 1 reject", "number 2 unreachable", "number 3 answer"}));
        Ctl loop({"call-loop", "--wait", "--json", "1", "2", "3"});
        QVERIFY(bed.WaitForEvent("phone VoiceCall(2)", 4));
        QVERIFY(bed.Command("hangup"));
        QVERIFY(loop.Ends(R"(0 .*\["dialling","unanswered","dialling","undialled","dialling","answered","ended"\].*)"
                          R"("number":"3"\}\n)"));
        QVERIFY(Ctl({"call-loop", "--wait", "1", "2"}).Ends("1 .*none of the numbers answered.*"));
        bed.Settle();
        QVERIFY(Ctl({"call", "--wait", "1"}).Ends("1 .*phonectl: the call was not answered.*"));
        bed.Settle();

        QVERIFY(bed.Command("number 110 no-answer"));
        QVERIFY(Ctl({"call", "--wait", "--timeout", "0.5", "110"}).Ends("4 .*timed out waiting for .*"));
        bed.Settle();
        QCOMPARE(bed.DeviceState().value("call").toString(), QString("dialling"));
        QVERIFY(bed.Commands({"reject", "network lost"}));
        QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
        Ctl orphan({"sms", "--wait", "110", "x"});
        QVERIFY(orphan.Tells("queued"));
        bed.StopService(SIGKILL);
        QVERIFY(orphan.Ends("3 .*left the bus.*"));
    }

    void monitor()
    {
        TestBed bed;
        QVERIFY(bed.BringUp());
        Ctl text({"monitor"});
        Ctl json({"monitor", "--json"});
        QVERIFY(text.Tells("is on the bus") && json.Tells("\"present\":true"));
        QVERIFY(bed.Command("sms +4912345 \"a\tb\u009b\u202ec\""));
        QVERIFY(text.Tells("SmsReceived  \"a\\x09b\\x9b\\u202ec\" (") && json.Tells("a\\tb\\u009b\\u202ec"));
        bed.StopService();
        QVERIFY(text.Tells("left the bus") && json.Tells("\"present\":false"));
        QVERIFY(bed.StartService());
        QVERIFY(bed.WaitForLog("Gsm modem POWERED"));
        QVERIFY(text.Tells("PhoneStatus  registering") && json.Tells("\"meaning\":\"registering\""));
        text.Interrupt();
        json.Interrupt();
        QVERIFY(text.Ends("0 .*is on the bus((?!is on the bus).)*is on the bus((?!is on the bus).)*"));
        QVERIFY(json.Ends("0 .*"));

        const QByteArray ours = qgetenv("DBUS_SESSION_BUS_ADDRESS");
        QProcess bus;
        bus.start("dbus-daemon", {"--session", "--nofork", "--print-address"});
        QVERIFY(bus.waitForReadyRead(LimitMs));
        qputenv("DBUS_SESSION_BUS_ADDRESS", bus.readLine().trimmed());
        Ctl orphan({"monitor"});
        qputenv("DBUS_SESSION_BUS_ADDRESS", ours);
        QVERIFY(orphan.Tells("left the bus"));
        bus.kill();
        QVERIFY(orphan.Ends("3 .*the session bus is gone\n"));
        bus.waitForFinished();
    }

    /// Reads every form of the log, with foreign lines among its own.
    void timeline()
    {
        const auto entry = [](const char* before, int level, const char* message) {
            return QStringLiteral("%1L%2 /com/quillmark/kova/phonemanager/phoneobj [a.cpp:1] void A::B(): %3\n")
                .arg(QLatin1String(before))
                .arg(level)
                .arg(QString::fromUtf8(message));
        };
        const QString log =
            entry("2026-11-24T14:00:00.000 ", 4, "Starting Phone Manager...") + "Starting Other Manager...\n" +
            entry("2026-11-24T14:00:01+0100 kova phonemanager[7]: ", 2, "Gsm modem POWERED") +
            entry("2026-11-24 14:00:20.5 ", 2, "PHONE_STATUS_REGISTERED and SIM present") +
            entry("Tue 2026-11-24 14:01:00 CET kova phonemanager[7]: ", 2, "Gsm phone call INCOMING") +
            entry("2026-11-24T14:01:00.1 ", 4, "LineIdentification: <b>\u202e") +
            entry("2026-11-24T14:01:00.2 ", 2, "Call from unauthorized user (<b>\u202e): won't answer") +
            entry("2026-11-24T14:01:02.0 ", 2, "Gsm phone call TERMINATED") +
            entry("2026-11-24T15:00:00.0 <4>", 2, "Signal Quality not received in 10 mins.. Power Cycle the modem") +
            entry("2026-11-24T15:00:01.0 ", 2, "Gsm modem OFF") +
            entry("2026-11-24T15:00:02.0 ", 1, "Can't <break> \uffff out") +
            entry("2026-11-24T15:00:03.0 ", 2, "Gsmd->GprsSetApn(a,b,secret) request failed");
        QFile file(folder.filePath("log"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(log.toUtf8()) > 0);
        file.close();
        QVERIFY(Ctl({"timeline", "--json", file.fileName()})
                    .Ends(R"(0 .*"foreignLines":1,.*"stranger refused","to":"2026-11-24 14:01:02".*)"
                          R"("registered","to":"2026-11-24 15:00:01".*"no signal report for 10 minutes".*)"));

        for (const char* name : {"a.svg", "a.html"}) {
            QVERIFY(Ctl({"timeline", file.fileName(), "--output", folder.filePath(name)}).Ends("0 .* 12 lines\n"));
            QFile drawn(folder.filePath(name));
            QVERIFY(drawn.open(QIODevice::ReadOnly));
            const QByteArray text = drawn.readAll().replace("<meta charset=\"utf-8\">", "");
            QXmlStreamReader xml(text);
            while (!xml.atEnd())
                xml.readNext();
            QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
            QVERIFY(text.contains("no signal report for 10 minutes") && text.contains("Can't &lt;break&gt;"));
            QVERIFY(!text.contains("secret") && !text.contains("\u202e"));
        }
        QVERIFY(
            Ctl({"timeline", file.fileName(), "--output", "/dev/stdout"}).Ends("0 <svg .*written, from 12 lines\n"));
        QVERIFY(Ctl({"timeline", "/none"}).Ends("2 .*\"/none\": No such file.*"));
        QVERIFY(Ctl({"timeline"}, "nothing of ours\n").Ends("1 .* no line of .*"));
    }

    /// The service authorises a caller by the contacts that were added.
    void contacts()
    {
        TestBed bed;
        qputenv("KOVA_CONTACTS_DB", QFile::encodeName(bed.ContactsPath()));
        QVERIFY(Ctl({"contacts", "list"}).Ends("0 no contacts\n"));
        QVERIFY(Ctl({"contacts", "add", "+4912345", "Anna", "--may-call-in"}).Ends("0 added\n"));
        QVERIFY(Ctl({"contacts", "add", "110"}).Ends("0 added\n"));
        QVERIFY(
            Ctl({"contacts", "add", "+4912345", "Berta"}).Ends("1 .*\"\\+4912345\" is there already, as \"Anna\".*"));
        QVERIFY(Ctl({"contacts", "list"}).Ends("0 \\+4912345  Anna  may call in\n110\n"));
        QVERIFY(Ctl({"contacts", "list", "--json"})
                    .Ends(R"(0 .*\[\{"flags":16,"mayCallIn":true,"name":"Anna","number":"\+4912345"\},.*)"));

        QVERIFY(bed.BringUp());
        QVERIFY(bed.Command("ring 110"));
        QVERIFY(bed.WaitForEvent("-> gsm CallHangup()") && bed.WaitForEvent("phone VoiceCall(0)"));
        QVERIFY(bed.Command("ring +4912345"));
        QVERIFY(bed.WaitForEvent("-> gsm CallAnswer()"));

        QVERIFY(Ctl({"contacts", "remove", "+4912345"}).Ends("0 removed\n"));
        QVERIFY(Ctl({"contacts", "list"}).Ends("0 110\n"));
    }

    void contactsDatabase()
    {
        const QString made = folder.filePath("made");
        qputenv("KOVA_CONTACTS_DB", QFile::encodeName(made + "/contacts.db"));
        QVERIFY(Ctl({"contacts", "remove", "110"}).Ends("1 .*"));
        QVERIFY(!QFile::exists(made));
        QVERIFY(Ctl({"contacts", "add", "110"}).Ends("0 added\n"));
        const auto owners = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser;
        QCOMPARE(QFile::permissions(made + "/contacts.db"), owners);
        QCOMPARE(QFile::permissions(made), owners | QFile::ExeOwner | QFile::ExeUser);

        const QByteArray text = "no database at all, but long enough to look like one from afar";
        QFile file(folder.filePath("text"));
        QVERIFY(file.open(QIODevice::ReadWrite) && file.write(text) == text.size() && file.flush());
        for (const QString& path : {file.fileName(), file.fileName() + "/contacts.db", folder.path()}) {
            qputenv("KOVA_CONTACTS_DB", QFile::encodeName(path));
            QVERIFY(Ctl({"contacts", "add", "110"}).Ends("1 phonectl: contacts database \"" + path + "\": .*; .*"));
        }
        QVERIFY(file.seek(0));
        QCOMPARE(file.readAll(), text);
    }
};

QTEST_GUILESS_MAIN(PhonectlTest)
#include "PhonectlTest.moc"
