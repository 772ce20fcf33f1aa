#include "Names.h"
#include "TestBed.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

namespace
{

constexpr int DefaultRounds = 500;
constexpr int CallsPerRound = 2; ///< each way
constexpr int SmsPerRound = 20;
constexpr int WarmUpRounds = 20;
constexpr int LookMs = 4000;         ///< in which an idle service does not wake up
constexpr int MemoryGrowthKiB = 512; ///< that the heap may grow by fragmentation

constexpr char Friend[] = "+4912345";
/// This also shortens the service's time limits, so a busy machine has to keep up.
constexpr char ClockRate[] = "+0 x20";

/// Resources that must not grow.
struct Resources {
    int memoryKiB;
    int files;
    int wakeUps; ///< while idle: timers that were left behind
};

int Number(const QString& path, const char* key)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QRegularExpression pattern(QStringLiteral("^%1:\\s+(\\d+)").arg(QLatin1String(key)),
                                     QRegularExpression::MultilineOption);
    return pattern.match(QString::fromLatin1(file.readAll())).captured(1).toInt();
}

int WakeUps(const QString& process)
{
    int sum = 0;
    for (const QString& task : QDir(process + "/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        sum += Number(process + "/task/" + task + "/status", "voluntary_ctxt_switches");
    return sum;
}

}

/// A phone's year in minutes. The service must need no more resources afterwards and report everything once.
class Soak : public QObject
{
    Q_OBJECT

public:
    static void initMain() { qputenv("QTEST_FUNCTION_TIMEOUT", "86400000"); } // for long runs

private Q_SLOTS:
    void KeepsItsResources();

private:
    static Resources Measure(qint64 pid);
    static bool CallOut(TestBed& bed);
    static bool CallIn(TestBed& bed);
    bool SendMessages(TestBed& bed, bool restart);
    static bool RestartDaemon(TestBed& bed);
    bool Round(TestBed& bed);

    uint lastSms = 0;
};

Resources Soak::Measure(qint64 pid)
{
    const QString process = QStringLiteral("/proc/%1").arg(pid);
    const int before = WakeUps(process);
    QTest::qWait(LookMs);
    return {Number(process + "/smaps_rollup", "Private_Dirty"),
            static_cast<int>(
                QDir(process + "/fd").entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System).size()),
            WakeUps(process) - before};
}

bool Soak::CallOut(TestBed& bed)
{
    bed.ForgetRecords();
    return bed.Phone().VoiceCallMake(Friend).value() == 0 && bed.WaitForEvent("phone VoiceCall(2)") &&
           bed.Command("hangup") && bed.WaitForEvent("phone VoiceCall(0)") &&
           bed.Events("phone") == QStringList{"phone VoiceCall(2)", "phone VoiceCall(0)"};
}

bool Soak::CallIn(TestBed& bed)
{
    bed.ForgetRecords();
    return bed.Command(QStringLiteral("ring ") + Friend) && bed.WaitForEvent("<- gsm CallAnswered") &&
           bed.Command("hangup") && bed.WaitForEvent("phone VoiceCall(0)") &&
           bed.Events("phone") == QStringList{"phone VoiceCall(1)", "phone VoiceCall(0)"};
}

bool Soak::RestartDaemon(TestBed& bed)
{
    return bed.Command("daemon leave") && bed.WaitForLog("Gsmd detached") && bed.Command("daemon return") &&
           bed.WaitForEvent("phone PhoneStatus(2)");
}

/// @param restart restarts the daemon while the messages wait.
bool Soak::SendMessages(TestBed& bed, bool restart)
{
    constexpr int count = SmsPerRound / 2;

    bed.ForgetRecords();
    QStringList expected;
    for (int i = 0; i < count; ++i) {
        bed.Phone().QueueSms(Friend, "A message.");
        expected.append(QStringLiteral("phone SmsSent(%1, ").arg(++lastSms));
    }
    bed.Settle();
    if ((restart && !RestartDaemon(bed)) || !bed.WaitForEvent("phone SmsSent", count))
        return false;

    // Each is reported once and in order. Those that a dying daemon accepted may be reported as lost.
    QStringList reports = bed.Events("phone SmsSent");
    for (QString& report : reports)
        report.truncate(report.indexOf(' ', static_cast<int>(qstrlen("phone SmsSent("))) + 1);
    return reports == expected;
}

bool Soak::Round(TestBed& bed)
{
    for (int i = 0; i < CallsPerRound; ++i) {
        if (!CallOut(bed) || !CallIn(bed))
            return false;
    }
    return SendMessages(bed, false) && SendMessages(bed, true);
}

void Soak::KeepsItsResources()
{
    bool given = false;
    const int wanted = qEnvironmentVariableIntValue("SOAK_ROUNDS", &given);
    const int rounds = given ? wanted : DefaultRounds;

    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n");
    bed.WriteContacts({{Friend, TestBed::MayCallIn}});
    // If the modem were off before the service has withdrawn its request, power cycles would never end.
    QVERIFY(bed.StartDevice({"--power-up", "0", "--register", "0", "--power-down", "500", "--answer", "0"}));
    bed.LaunchService({{"FAKETIME_TIMESTAMP_FILE", {}}, {"FAKETIME", ClockRate}, {"KOVA_LOG_LEVEL", "4"}});
    QVERIFY(bed.WaitForEvent("phone PhoneStatus(2)"));
    const qint64 pid = QDBusConnection::sessionBus().interface()->servicePid(Names::PhoneService);

    for (int round = 0; round < WarmUpRounds; ++round)
        QVERIFY(Round(bed));
    const Resources before = Measure(pid);
    for (int round = 0; round < rounds; ++round)
        QVERIFY2(Round(bed), qPrintable(QStringLiteral("round %1").arg(round)));
    const Resources after = Measure(pid);

    qInfo("%d calls each way, %d messages, %d restarts of the daemon: %d -> %d KiB, %d -> %d files, %d -> %d wake-ups",
          rounds * CallsPerRound, rounds * SmsPerRound, rounds, before.memoryKiB, after.memoryKiB, before.files,
          after.files, before.wakeUps, after.wakeUps);
    QCOMPARE(after.files, before.files);
    QCOMPARE(after.wakeUps, before.wakeUps);
    QVERIFY(after.memoryKiB <= before.memoryKiB + MemoryGrowthKiB);
    QCOMPARE(bed.StopService(), 0);
}

QTEST_GUILESS_MAIN(Soak)

#include "Soak.moc"
