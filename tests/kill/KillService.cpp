#include "TestBed.h"

#include <QDBusPendingReply>
#include <QDir>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSettings>
#include <QTest>

namespace
{

constexpr int DefaultRuns = 10;
constexpr int LatestKillMs = 150; ///< after the last request; by then it has been carried out
constexpr char OtherSetting[] = "neighbour/text";
constexpr char OtherValue[] = "what others keep here, with \"quotes\"";

}

/// The service is killed at any moment of bring-ups, changes of the settings and calls.
class KillService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void LosesNothing();

private:
    void Ask(TestBed& bed, QRandomGenerator& random);
};

/// Asks without waiting for answers.
void KillService::Ask(TestBed& bed, QRandomGenerator& random)
{
    PhoneProxy& phone = bed.Phone();
    for (int left = random.bounded(1, 6); left > 0; --left) {
        switch (random.bounded(5)) {
        case 0: phone.VoiceCallMake("+4912345"); break;
        case 1: phone.QueueSms("+4912345", "a message"); break;
        case 2: phone.ForcePhoneOff(random.bounded(2) == 0); break;
        default: phone.PhoneSetEnabled(random.bounded(2) == 0); break;
        }
    }
}

void KillService::LosesNothing()
{
    bool given = false;
    const int wanted = qEnvironmentVariableIntValue("KILL_RUNS", &given);
    const int runs = given ? wanted : DefaultRuns;
    const quint32 seed = qEnvironmentVariableIsSet("KILL_SEED") ? qEnvironmentVariable("KILL_SEED").toUInt()
                                                                : QRandomGenerator::global()->generate();
    qInfo("KILL_SEED=%u KILL_RUNS=%d", seed, runs);
    QRandomGenerator random(seed);

    TestBed bed;
    {
        QSettings settings(bed.SettingsPath(), QSettings::IniFormat);
        settings.setValue("PHONE/enabled", "1");
        settings.setValue(OtherSetting, OtherValue);
    }
    QVERIFY(bed.StartDevice());
    for (int run = 0; run < runs; ++run) {
        bed.LaunchService();
        if (random.bounded(3) > 0) {
            QVERIFY(bed.WaitForLog("Phone Manager running"));
            if (random.bounded(2) == 0)
                bed.PassTime(20000); // the SIM check, after which calls and messages are taken
            Ask(bed, random);
        }
        QTest::qWait(random.bounded(LatestKillMs));
        QCOMPARE(bed.StopService(SIGKILL), -1);

        // Read with other eyes than the service's.
        const QByteArray text = bed.Settings();
        const QStringList lines = QString::fromUtf8(text).split('\n');
        QVERIFY2(lines.contains("enabled=0") != lines.contains("enabled=1"), text.constData());
        QVERIFY2(text.contains("quotes"), text.constData());

        // The next start does what the settings ask for, and takes and keeps a new one.
        bed.ForgetRecords();
        QVERIFY(bed.StartService());
        const bool enabled = lines.contains("enabled=1");
        QTRY_COMPARE_WITH_TIMEOUT(bed.DeviceState().value("modem").toString(), QString(enabled ? "registered" : "off"),
                                  30000);
        QCOMPARE(bed.Phone().PhoneSetEnabled(!enabled).value(), 0);
        QVERIFY(bed.Settings().contains(enabled ? "enabled=0" : "enabled=1"));
        QCOMPARE(QSettings(bed.SettingsPath(), QSettings::IniFormat).value(OtherSetting).toString(),
                 QString(OtherValue));
        QCOMPARE(bed.StopService(), 0);
        bed.ForgetRecords();

        // What a kill in the middle of a write leaves is gone after the next one.
        QStringList left =
            QFileInfo(bed.SettingsPath()).dir().entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        for (const char* expected : {"clock", "config.ini"})
            left.removeAll(expected);
        QCOMPARE(left, QStringList());
    }
}

QTEST_GUILESS_MAIN(KillService)

#include "KillService.moc"
