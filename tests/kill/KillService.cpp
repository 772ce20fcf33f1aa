#include "TestBed.h"

#include <QRandomGenerator>
#include <QSettings>
#include <QTest>

namespace
{

constexpr int DefaultRuns = 10;
constexpr int LatestKillMs = 150; ///< after the last request, which is done by then
constexpr int SimCheckMs = 20000;
constexpr char OtherSetting[] = "neighbour/text";
constexpr char OtherValue[] = "a value of another program, with \"quotes\"";

quint32 FromEnvironment(const char* name, quint32 otherwise)
{
    return qEnvironmentVariableIsSet(name) ? qEnvironmentVariable(name).toUInt() : otherwise;
}

}

/// Kills the service at random moments of bring-ups, changes of the settings and calls.
class KillService : public QObject
{
    Q_OBJECT

    /// Sends random requests without waiting for the answers.
    static void Ask(PhoneProxy& phone, QRandomGenerator& random)
    {
        for (int left = random.bounded(1, 6); left > 0; --left) {
            switch (random.bounded(5)) {
            case 0: phone.VoiceCallMake("+4912345"); break;
            case 1: phone.QueueSms("+4912345", "a message"); break;
            case 2: phone.ForcePhoneOff(random.bounded(2) == 0); break;
            default: phone.PhoneSetEnabled(random.bounded(2) == 0); break;
            }
        }
    }

private Q_SLOTS:
    void LosesNothing()
    {
        const quint32 runs = FromEnvironment("KILL_RUNS", DefaultRuns);
        const quint32 seed = FromEnvironment("KILL_SEED", QRandomGenerator::global()->generate());
        qInfo("KILL_SEED=%u KILL_RUNS=%u", seed, runs);
        QRandomGenerator random(seed);

        TestBed bed;
        const auto read = [&](const char* name) {
            return QSettings(bed.SettingsPath(), QSettings::IniFormat).value(name).toString();
        };
        QSettings(bed.SettingsPath(), QSettings::IniFormat).setValue(OtherSetting, OtherValue);
        QVERIFY(bed.StartDevice());
        for (quint32 run = 0; run < runs; ++run) {
            bed.LaunchService();
            if (random.bounded(3) > 0) {
                QVERIFY(bed.WaitForLog("Phone Manager running"));
                if (random.bounded(2) == 0)
                    bed.PassTime(SimCheckMs); // Calls and messages are accepted after that.
                Ask(bed.Phone(), random);
            }
            QTest::qWait(random.bounded(LatestKillMs));
            QCOMPARE(bed.StopService(SIGKILL), -1);

            // The next start follows the settings, and a new setting is stored.
            const bool enabled = read("PHONE/enabled") == "1";
            bed.ForgetRecords();
            QVERIFY(bed.StartService());
            QTRY_COMPARE_WITH_TIMEOUT(bed.DeviceState().value("modem").toString(),
                                      QString(enabled ? "registered" : "off"), 30000);
            QCOMPARE(bed.Ask("PhoneSetEnabled", !enabled), 0);
            QCOMPARE(read("PHONE/enabled"), QString(enabled ? "0" : "1"));
            QCOMPARE(read(OtherSetting), QString(OtherValue));
            QCOMPARE(bed.StopService(), 0);
            bed.ForgetRecords();
        }
    }
};

QTEST_GUILESS_MAIN(KillService)
#include "KillService.moc"
