#include "Names.h"
#include "TestBed.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <QTest>

namespace
{

constexpr char Service[] = KOVA_BUILD_DIR "/phonemanager";

}

/// The service as a process: start, failures at the start, stop, introspection and places in the log.
class ProcessTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// It must not start for --help: it would power the modem off before it noticed that the name is taken.
    void takesNoArguments()
    {
        QProcess service;
        service.start(Service, {"--help"});
        QVERIFY(service.waitForFinished());
        QCOMPARE(service.exitCode(), 255);
        const QByteArray complaint = service.readAllStandardError();
        QCOMPARE(complaint.count('\n'), 1);
        QVERIFY2(complaint.contains("--help"), complaint.constData());
        QCOMPARE(service.readAllStandardOutput(), QByteArray());
    }

    void noBus()
    {
        TestBed bed;
        bed.LaunchService({{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere"}});
        QCOMPARE(bed.AwaitEnd(), 255);
        QCOMPARE(bed.StandardOutput(), "DBUS: Can't connect session bus\n");
        QCOMPARE(bed.LogTexts(9), QStringList({"4 Starting Phone Manager...", "1 DBUS: Can't connect session bus"}));
    }

    void losesBus()
    {
        QProcess bus;
        bus.start("dbus-daemon", {"--session", "--nofork", "--print-address"});
        QVERIFY(bus.waitForReadyRead());
        TestBed bed;
        bed.LaunchService({{"DBUS_SESSION_BUS_ADDRESS", bus.readLine().trimmed()}});
        QVERIFY(bed.WaitForLog("Phone Manager running"));
        bus.kill();
        QVERIFY(bus.waitForFinished());
        QVERIFY(bed.WaitForLog("DBUS: Lost the connection to the bus"));
        QCOMPARE(bed.StopService(), 0);
    }

    /// By default libdbus stops reading for ever once a message exceeds 63 MiB.
    void hearsAfterLargeRequest()
    {
        TestBed bed;
        QVERIFY(bed.StartService());
        QCOMPARE(bed.Ask("QueueSms", "+491", QString(70'000'000, 'x')), -57);
        QCOMPARE(bed.Ask("GetStatus"), 0);
    }

    void badOutput()
    {
        for (const char* redirections : {"<&- >&- 2>&-", "2> >(:)"}) { // closed descriptors; a reader that has ended
            QProcess service;
            service.start("bash", {"-c", "exec " + QString(Service) + ' ' + redirections});
            QTRY_VERIFY(QDBusConnection::sessionBus().interface()->isServiceRegistered(Names::PhoneService));
            if (*redirections == '<')
                QCOMPARE(QFile::symLinkTarget(QStringLiteral("/proc/%1/fd/2").arg(service.processId())),
                         QString("/dev/null"));
            TestBed bed;
            QCOMPARE(bed.Ask("ForcePhoneOff", true), 0);
            service.terminate();
            QVERIFY(service.waitForFinished());
            QCOMPARE(service.exitStatus(), QProcess::NormalExit);
            QCOMPARE(service.exitCode(), 0);
        }
    }

    void nameTaken()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        QVERIFY(bus.registerService(Names::PhoneService));
        TestBed bed;
        bed.LaunchService();
        QCOMPARE(bed.AwaitEnd(), 255);
        QVERIFY(bus.unregisterService(Names::PhoneService));
        QCOMPARE(bed.LogTexts().last(), "1 DBUS: Can't register service [com.quillmark.kova.phonemanager]");
        QCOMPARE(bed.StandardOutput(), QByteArray());
    }

    void stops()
    {
        { // A request to stop during the start, which the device holds up, is not lost.
            TestBed bed;
            QVERIFY(bed.StartDevice() && bed.Command("fault ModemSetEnabled delay 500 times 1"));
            bed.LaunchService();
            QVERIFY(bed.WaitForEvent("-> gsm ModemSetEnabled(false)"));
            QCOMPARE(bed.StopService(), 0);
        }
        for (const int signal : {SIGTERM, SIGINT}) {
            const bool attached = signal == SIGTERM;
            TestBed bed;
            QVERIFY((!attached || bed.StartDevice()) && bed.StartService());
            QCOMPARE(bed.LogTexts().contains("2 UNEXPECTED: Gsm service not ready. Will wait for it."), !attached);
            bed.ForgetRecords();
            QCOMPARE(bed.StopService(signal), 0);
            QStringList texts = {"4 Gracefully stop PhoneManager Adapter...", "4 Gracefully stop PhoneManager...",
                                 "4 Succesfully terminated"};
            if (attached)
                texts += {"2 Destroying gsm proxy", "2 Gsmd detached"};
            QCOMPARE(bed.LogTexts(9), texts);
            QCOMPARE(bed.StandardOutput(), QByteArray());
        }
    }

    /// The device's libraries use the executable's log client, but must not bind to functions of the executable.
    void exportsLog()
    {
        QProcess nm;
        nm.start("nm", {"--dynamic", "--defined-only", Service});
        QVERIFY(nm.waitForFinished());
        const QByteArray exported = nm.readAllStandardOutput();
        QVERIFY(exported.contains(" B _logInterface\n"));
        QVERIFY(!exported.contains(" T "));
    }

    /// Introspection returns the installed description with its comments, and no other interface of ours.
    void introspects()
    {
        TestBed bed;
        QVERIFY(bed.StartService());
        const auto call = QDBusMessage::createMethodCall(Names::PhoneService, Names::PhoneObject,
                                                         "org.freedesktop.DBus.Introspectable", "Introspect");
        const QString shown = QDBusConnection::sessionBus().call(call).arguments().value(0).toString();
        QFile installed(KOVA_SOURCE_DIR "/dbus/com.quillmark.kova.phoneinterface.xml");
        QVERIFY(installed.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(installed.readAll());
        const qsizetype begin = text.indexOf("  <interface ");
        QVERIFY(shown.contains(text.mid(begin, text.indexOf("</node>") - begin)));
        QVERIFY(text.count("<!--") >= text.count("<method ") + text.count("<signal "));
        QCOMPARE(shown.count("<interface name=\"com.quillmark"), 1);
    }

    /// Every log line names its own source line and function, even if a shared procedure writes it.
    void linesNameTheirPlace()
    {
        TestBed bed;
        bed.WriteContacts({{"+49111", TestBed::MayCallIn}});
        QVERIFY(bed.BringUp({"fault GetOutputType status 1"}));
        bed.Phone().QueueSms("+49333", "hello");
        bed.Phone().VoiceCallLoopMake({"+49222"});
        bed.PassTime(3000);
        QVERIFY(bed.WaitForLog("EMERGENCY GSM CALL SUCCESFULLY STARTED"));
        QVERIFY(bed.Commands({"hangup", "ring +49333"}) && bed.WaitForLog("GSM STREAM SUCCESFULLY STOPPED"));

        const QList<LogLine> log = bed.Log();
        for (const LogLine& line : log) {
            if (line.file == "../../include/common_qdbus.h")
                continue;
            QFile file(QStringLiteral(KOVA_SOURCE_DIR "/") + line.file);
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(line.file));
            // The last line above that starts in the first column begins the function, which must be the one named.
            const QList<QByteArray> source = file.readAll().split('\n');
            int begin = line.line - 1;
            while (begin > 0 && (source[begin].isEmpty() || !QChar(source[begin][0]).isLetter()))
                --begin;
            const QString name = line.function.section('(', 0, 0).section(' ', -1);
            QVERIFY2(QString(source[begin]).contains(name + '('),
                     qPrintable(line.function + " is not at " + source[begin]));
            const bool oddOrigin = line.file == "controllers/SmsOutController.cpp";
            QCOMPARE(line.origin, QString(oddOrigin ? Names::SoundManagerObject : Names::PhoneObject));
        }
    }
};

QTEST_GUILESS_MAIN(ProcessTest)
#include "ProcessTest.moc"
