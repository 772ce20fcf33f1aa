#include "Interface.h"
#include "Names.h"
#include "TestBed.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <QTest>

/// The service as a process: how it starts, fails to start and stops, and what it shows to others.
class ProcessTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takesNoArguments();
    void noBus();
    void losesBus();
    void hearsAfterLargeRequest();
    void badOutput_data();
    void badOutput();
    void nameTaken();
    void stops_data();
    void stops();
    void exportsLog();
    void introspects();
    void linesTellTheirPlace();
};

namespace
{

constexpr char Service[] = KOVA_BUILD_DIR "/phonemanager";

}

/// A second service would power the modem off before it found the name taken.
void ProcessTest::takesNoArguments()
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

void ProcessTest::noBus()
{
    TestBed bed;
    bed.LaunchService({{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere"}});
    QCOMPARE(bed.AwaitEnd(), 255);
    QCOMPARE(bed.StandardOutput(), "DBUS: Can't connect session bus\n");
    QCOMPARE(bed.LogTexts(9), QStringList({"4 Starting Phone Manager...", "1 DBUS: Can't connect session bus"}));
}

void ProcessTest::losesBus()
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

/// The bus library of its own stops reading above 63 MiB, for ever.
void ProcessTest::hearsAfterLargeRequest()
{
    TestBed bed;
    QVERIFY(bed.StartService());
    const QString text(70'000'000, 'x');
    QCOMPARE(TestBed::StatusOf(bed.Phone().QueueSms("+491", text)), -57);
    QCOMPARE(TestBed::StatusOf(bed.Phone().GetStatus()), 0);
}

void ProcessTest::badOutput_data()
{
    QTest::addColumn<QString>("redirections");
    QTest::addColumn<QString>("target");
    QTest::newRow("closed") << "<&- >&- 2>&-"
                            << "/dev/null";
    QTest::newRow("reader gone") << "2> >(:)"
                                 << "";
}

void ProcessTest::badOutput()
{
    QFETCH(QString, redirections);
    QFETCH(QString, target);
    QProcess service;
    service.start("bash", {"-c", "exec " + QString(Service) + ' ' + redirections});
    QTRY_VERIFY(QDBusConnection::sessionBus().interface()->isServiceRegistered(Names::PhoneService));
    if (!target.isEmpty())
        QCOMPARE(QFile::symLinkTarget(QStringLiteral("/proc/%1/fd/2").arg(service.processId())), target);
    TestBed bed;
    QCOMPARE(TestBed::StatusOf(bed.Phone().ForcePhoneOff(true)), 0);
    service.terminate();
    QVERIFY(service.waitForFinished());
    QCOMPARE(service.exitStatus(), QProcess::NormalExit);
    QCOMPARE(service.exitCode(), 0);
}

void ProcessTest::nameTaken()
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

void ProcessTest::stops_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<bool>("attached");
    QTest::newRow("terminate") << SIGTERM << true;
    QTest::newRow("interrupt") << SIGINT << false;
}

void ProcessTest::stops()
{
    QFETCH(int, signal);
    QFETCH(bool, attached);
    TestBed bed;
    QVERIFY(!attached || bed.StartDevice());
    QVERIFY(bed.StartService());
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

/// The device's libraries look for the log client in the executable.
void ProcessTest::exportsLog()
{
    QProcess nm;
    nm.start("nm", {"--dynamic", "--defined-only", Service});
    QVERIFY(nm.waitForFinished() && nm.exitCode() == 0);
    QVERIFY(nm.readAllStandardOutput().contains(" B _logInterface\n"));
}

/// What a bus tool is shown is the description that is installed, comments included, and nothing but the phone's
/// interface.
void ProcessTest::introspects()
{
    TestBed bed;
    QVERIFY(bed.StartService());
    const QString shown = QDBusConnection::sessionBus()
                              .call(QDBusMessage::createMethodCall(Names::PhoneService, Names::PhoneObject,
                                                                   "org.freedesktop.DBus.Introspectable", "Introspect"))
                              .arguments()
                              .value(0)
                              .toString();
    QFile installed(KOVA_SOURCE_DIR "/dbus/com.quillmark.kova.phoneinterface.xml");
    QVERIFY(installed.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(installed.readAll());
    const qsizetype begin = text.indexOf("  <interface ");
    QVERIFY(shown.contains(text.mid(begin, text.indexOf("</node>") - begin)));
    QVERIFY(text.count("<!--") >= text.count("<method ") + text.count("<signal "));
    QCOMPARE(shown.count("<interface name=\"com.quillmark"), 1);
}

/// Whatever procedure writes it, a line names the source line, with its function, that it belongs to.
void ProcessTest::linesTellTheirPlace()
{
    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n");
    bed.WriteContacts({{"+49111", 16}});
    QVERIFY(bed.StartService() && bed.StartDevice() && bed.PassSimCheck());
    QVERIFY(bed.Command("fault GetOutputType status 1"));
    bed.Phone().QueueSms("+49333", "hello");
    bed.Phone().VoiceCallLoopMake({"+49222"});
    bed.PassTime(3000);
    QVERIFY(bed.WaitForLog("EMERGENCY GSM CALL SUCCESFULLY STARTED"));
    QVERIFY(bed.Commands({"hangup", "ring +49333"}));
    QVERIFY(bed.WaitForLog("GSM STREAM SUCCESFULLY STOPPED"));

    const QList<LogLine> log = bed.Log();
    for (const LogLine& line : log) {
        if (line.file == "../../include/common_qdbus.h")
            continue;
        QFile file(QStringLiteral(KOVA_SOURCE_DIR "/") + line.file);
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(line.file));
        // Nearest above the line, a function begins in the first column, and it is the one named.
        const QList<QByteArray> source = file.readAll().split('\n');
        int begin = line.line - 1;
        while (begin > 0 && (source[begin].isEmpty() || !QChar(source[begin][0]).isLetter()))
            --begin;
        const QString name = line.function.section('(', 0, 0).section(' ', -1);
        QVERIFY2(QString(source[begin]).contains(name + '('),
                 qPrintable(line.function + " is not at " + source[begin]));

        const bool oddOrigin = line.file == "controllers/SmsOutController.cpp";
        QCOMPARE(line.origin, oddOrigin ? "/com/quillmark/kova/soundmanager/soundobj" : QString(Names::PhoneObject));
    }
    QCOMPARE(bed.StopService(), 0);
}

QTEST_GUILESS_MAIN(ProcessTest)

#include "ProcessTest.moc"
