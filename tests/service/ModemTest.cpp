#include "TestBed.h"

#include <QTest>

class ModemTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bringUp();
};

/// Off, powered, SIM card checked, registered: requests, signals and log lines, each in its order.
void ModemTest::bringUp()
{
    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n");
    QVERIFY(bed.StartDevice());
    QVERIFY(bed.StartService());
    QVERIFY(bed.PassSimCheck());
    QVERIFY(bed.WaitForLog("PHONE_STATUS_REGISTERED and SIM present"));

    const QStringList events = {
        "-> gsm ModemSetEnabled(false)", "-> gsm ModemSetEnabled(true)", "<- gsm ModemPowered()",
        "phone PhoneStatus(1)",          "<- gsm ModemRegistered()",     "<- gsm SignalQuality(71)",
        "-> gsm IsSimPresent()",         "phone SimPresent(true)",       "phone PhoneStatus(2)"};
    QCOMPARE(bed.Events(), events);
    const QStringList texts = {
        "4 Starting Phone Manager...",
        "4 Retrieving Gsm service",
        "4 Creating Gsm service manager",
        "4 Gsmd registered to DBus",
        "4 Creating gsm proxy",
        "4 Gsmd attached",
        "4 Gsm service manager created",
        "4 Gsm service connected",
        "4 Gsm service becomes READY",
        "4 RESET to OFF",
        "4 Gsmd->ModemSetEnabled(0) requested",
        "5 Gsmd->ModemSetEnabled(0) request success",
        "4 phoneEnabled 1, gprsEnabled 0 (forcedOff 0)",
        "2 EvaluatePhonePower() users 1, sim check try 0, sim status 0",
        "4 Gsmd->ModemSetEnabled(1) requested",
        "5 Gsmd->ModemSetEnabled(1) request success",
        "4 (RequestOn) Status=GsmPowerStatusOff => Status=GsmPowerStatusOn, requestedOn=1",
        "4 gsmPowerToRegisteredTimer connected",
        "4 gsmSignalQualityPingTimer connected",
        "4 gsmSignalQualityNotReceivedTimer connected",
        "4 gsmPPPPresenceTimer connected",
        "4 pendingOutgoingCallTimer connected",
        "4 Gsm service connected",
        "4 SmsOutController connected",
        "4 PhoneManger auto-connected",
        "4 Phone Manager running",
        "2 Gsm modem POWERED",
        "4 Gsm modem REGISTERED",
        "2 But SIM still not validated (1)..",
        "4 Gsm signal: 71",
        "5 Gsmd->IsSimPresent() request success",
        "2 Now Sim is 1 (try 0)",
        "4 ..So finally Modem is registered",
        "4 Gsm modem REGISTERED",
        "2 PHONE_STATUS_REGISTERED and SIM present",
    };
    QCOMPARE(bed.LogTexts(), texts);
}

QTEST_GUILESS_MAIN(ModemTest)

#include "ModemTest.moc"
