#pragma once

#include "PhoneCodes.h"
#include "Sms.h"

#include <KovaFeatureBase.h>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

#include <source_location>

/// The phone: holds all its state and handles the requests from the bus, the modem's reports and its own timers. Create
/// one, and use it in the main thread only. Its slots block that thread until the device's services answer.
class PhoneManager : public KovaFeatureBase
{
    Q_OBJECT

public:
    /// Does not throw if the set-up fails: IsInitialized() then returns false.
    PhoneManager();

    bool IsInitialized() const { return initialized; }

    // The phone ignores the device's life-cycle events: suspend and shutdown reach it through ForcePhoneOff().
    void OnStart() override {}
    void OnStop() override {}
    void OnSuspend() override {}
    void OnResume() override {}

Q_SIGNALS:
    /// A number of the loop could not be called. Makes the loop move on. Not on the bus.
    void VoiceCallPrematureFail();
    /// @param Status the ModemStatus that the modem has reported.
    void PhoneStatus(uint Status);
    /// The result of a SIM check that the modem has answered.
    void SimPresent(bool Present);
    /// A message as the GSM daemon delivered it.
    void SmsReceived(QString Text, QVariantMap Info);
    /// @param Identifier counts the messages from 1. @param Status false if the message is lost.
    void SmsSent(uint Identifier, bool Status);
    /// @param Status the VoiceCallStatus that was entered.
    void VoiceCall(uint Status);
    /// Starts a call loop from the event loop. Part of the class's interface, but VoiceCallLoopMake() uses a timer. Not
    /// on the bus.
    void StartCallLoop(QStringList PhoneNumbersList);

public Q_SLOTS:
    void OnGsmReady();
    void OnGsmFailed();
    void OnGsmModemOn();
    void OnGsmModemRegistered();
    void OnGsmModemOff();
    void OnGsmCallIncoming(const QVariantMap& CallInfo);
    void OnGsmCallAnswered(const QVariantMap& CallInfo);
    void OnGsmCallTimeout();
    void OnGsmCallTerminated();
    void OnGsmCallRejected();
    void OnGsmSignalQuality(uint sq);
    void OnGsmSmsReceived(const QString& Text, const QVariantMap& Info);
    void OnSmsSent(const Sms& sms, bool sent);
    void OnSimCheckContinue();
    void OnGsmPowerToRegisteredTimeout();
    void OnGsmSignalQualityTimeout();
    void OnGsmSignalQualityPingTimeout();
    void OnGsmPPPPresenceTimeout();
    void StartCallLoopSlot(const QStringList& PhoneNumbersList);
    void StartCallLoopSlot();
    void HangupSlot();

    // The exported methods; each returns a StatusCode.

    int PhoneSetEnabled(bool Enabled);
    int ForcePhoneOff(bool Off);
    int GetStatus(uint& PhoneStatus, uint& SimStatus, uint& Rssi, uint& Users, bool& Forced);
    /// Leaves Identifier untouched: the log and SmsSent carry the message's identifier.
    int QueueSms(const QString& PhoneNumber, const QString& Message, uint& Identifier);
    int SetApn(const QString& Apn, const QString& Username, const QString& Password);
    int VoiceCallMake(const QString& PhoneNumber);
    int VoiceCallLoopMake(const QStringList& PhoneNumbersList);

private:
    // Power policy
    bool GetPhoneEnabledConfig();
    bool GetDataGprsEnabledConfig();
    void SetPhoneEnabledConfig(bool enabled);
    int PhoneUsers();
    bool EvaluatePhonePower();

    // Calls
    bool AnyCallInProgress();
    void AbandonCalls();
    bool IsCallLoopInProgress();
    void SetCallLoopInProgress(bool inProgress);
    void RunCallLoop(const QStringList* numbers, const std::source_location& where);

    // Audio
    bool RouteOutput();
    bool StartGsmVoice(const std::source_location& where);
    bool DefaultAmpliMaskSave();
    bool DefaultAmpliMaskRestore();
    bool OutputTypeSave();
    bool OutputTypeRestore();
    bool OutputTypeSet(uint outputType);

    bool initialized = false;
    bool forcedOff = false;
    int simStatus = SimStatusUnchecked;
    int simCheckTry = 0; ///< SIM checks that ended with a reboot of the modem; only logged
    QTimer gsmPowerToRegisteredTimer;
    QTimer gsmSignalQualityNotReceivedTimer;
    QTimer gsmSignalQualityPingTimer;
    QTimer gsmPPPPresenceTimer;

    // The state of a call is in three flags. These functions change them, and no others:
    //
    // flag                    meaning                  set by               cleared by
    // incomingCallInProgress  a call rings or was      OnGsmCallIncoming()  OnGsmCallTerminated()
    //                         answered here
    // outgoingCallInProgress  a call was requested,    VoiceCallMake()      OnGsmCallTerminated()
    //                         even if refused
    // callLoopInProgress      a rejection makes the    RunCallLoop()        OnGsmCallAnswered(), and
    //                         loop dial on                                  OnGsmCallRejected() of the last number
    //
    // AbandonCalls() clears all three when the modem or its daemon is gone. OnGsmCallTerminated() clears nothing if the
    // sound manager is missing.
    bool incomingCallInProgress = false;
    bool outgoingCallInProgress = false;
    bool callLoopInProgress = false;
    QMutex callLoopMutex; ///< guards the loop's flag, index and list while they change
    QTimer pendingOutgoingCallTimer;
    quint8 savedDefaultAmpliMask = 0;
    quint32 savedOutputType = 0;
    int callLoopIndex = 0; ///< position in callLoopNumbers of the number being called
    QStringList callLoopNumbers;
};
