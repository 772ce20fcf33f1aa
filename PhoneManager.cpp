#include "PhoneManager.h"

#include "AudioInCtlProxy.h"
#include "AudioOutCtlProxy.h"
#include "Connections.h"
#include "Gsm.h"
#include "GsmPowerController.h"
#include "LinkState.h"
#include "QtCompat.h"
#include "SmsOutController.h"
#include "TimeLimits.h"
#include "common_qdbus.h"

#include <Configuration.h>
#include <Contacts.h>
#include <QDBusConnection>
#include <QMutexLocker>
#include <SoundManagerProxy.h>

#include <algorithm>
#include <unistd.h>

namespace
{

constexpr int SignalQualityPingMs = 300000;
constexpr int SignalQualityTimeoutMs = 600000;
constexpr int PppPresenceCheckMs = 600000;

constexpr int SecondHangupDelayMs = 1000;
constexpr int CallLoopStartDelayMs = 2000;
constexpr unsigned int AnswerDelayS = 3;

constexpr char PppInterface[] = "ppp0";

// The audio path of a call.
constexpr uchar AMPS_MASK_AUX = 2;
// The names appear in log lines; both inputs have the same number.
constexpr int INPUT_SOURCE_GSM_EAR_AUX = 3; ///< outgoing calls
constexpr int INPUT_SOURCE_GSM_EAR_MIC = 3; ///< incoming calls

// The settings that decide whether the modem is wanted.
constexpr char PhoneSection[] = "PHONE";
constexpr char PhoneEnabledKey[] = "enabled";
constexpr char DataSection[] = "DEVICES_SETUP";
constexpr char GprsEnabledKey[] = "gprs-enabled";
constexpr char SettingOn[] = "1";
constexpr char SettingOff[] = "0";

/// Reads a setting from the file each time, because other programs change it too. An unreadable setting counts as off.
bool ReadSetting(const char* section, const char* key,
                 const std::source_location& where = std::source_location::current())
{
    Configuration configuration(Names::PhoneObject);
    if (!configuration.IsValid()) {
        LOG_AT(where, LogLevelError, "Can't read %s config (invalid Configuration proxy)", section);
        return false;
    }

    bool ok = false;
    const QString value = configuration.ReadConfigValue(section, key, SettingOff, &ok, true);
    return ok && value == QLatin1String(SettingOn);
}

/// The audio service behind a proxy class. The name in the log is fixed, because a device may have its own class.
template <typename Proxy>
struct AudioPeer;

template <>
struct AudioPeer<SoundManagerProxy> {
    static constexpr const char* nameInLog = "SoundManagerProxy";
    static constexpr const char* name = Names::SoundManagerService;
    static constexpr const char* object = Names::SoundManagerObject;
};

template <>
struct AudioPeer<AudioOutCtlProxy> {
    static constexpr const char* nameInLog = "AudioOutCtlProxy";
    static constexpr const char* name = Names::AudioOutCtlService;
    static constexpr const char* object = Names::AudioOutCtlObject;
};

template <>
struct AudioPeer<AudioInCtlProxy> {
    static constexpr const char* nameInLog = "AudioInCtlProxy";
    static constexpr const char* name = Names::AudioInCtlService;
    static constexpr const char* object = Names::AudioInCtlObject;
};

/// A client of one audio service, made on the stack for one operation. Check isValid() before use; if it is false, the
/// constructor has logged that.
template <typename Proxy>
class AudioClient : public Proxy
{
public:
    explicit AudioClient(int timeoutMs, const std::source_location& where = std::source_location::current())
        : Proxy(AudioPeer<Proxy>::name, AudioPeer<Proxy>::object, QDBusConnection::sessionBus(), nullptr)
    {
        this->setTimeout(timeoutMs);
        if (!this->isValid())
            LOG_AT(where, LogLevelWarning, "Can't create %s", AudioPeer<Proxy>::nameInLog);
    }
};

/// Waits for an audio service's answer and logs a failure.
/// @param label the request in the trace.
/// @param request the request in the failure line.
bool FinishRequest(const char* label, const QByteArray& request, const QDBusPendingReply<int>& reply,
                   const std::source_location& where = std::source_location::current())
{
    const bool success = FinishCall(label, reply);
    if (!success)
        LOG_AT(where, LogLevelWarning, "Failed to request %s", request.constData());
    return success;
}

/// Switches the audio input to the GSM path.
/// @param sourceName the source's name in the failure line.
bool SelectInput(int source, const char* sourceName,
                 const std::source_location& where = std::source_location::current())
{
    AudioClient<AudioInCtlProxy> audioInCtl(TimeLimits::AudioControlMs, where);
    return audioInCtl.isValid() &&
           FinishRequest("audioInCtl->SetInputSource", QByteArray("audioInCtl->SetInputSource(") + sourceName + ')',
                         audioInCtl.SetInputSource(source), where);
}

/// True if the number is that of a contact who may call in. Numbers are compared as they are, without normalisation.
bool IsAuthorised(const QString& number, const std::source_location& where = std::source_location::current())
{
    kova_provider::Contacts contacts(Names::PhoneObject);
    if (!contacts.IsLoaded()) {
        LOG_AT(where, LogLevelError, "Error loading contacts");
        return false;
    }

    const QList<kova_provider::Contact> callers = contacts.getContacts(kova_provider::ContactFilterMayCallIn);
    return std::any_of(callers.begin(), callers.end(),
                       [&](const kova_provider::Contact& caller) { return caller.phoneNumber == number; });
}

}

// Assembly

PhoneManager::PhoneManager() : KovaFeatureBase(Names::PhoneObject)
{
    try {
        LOG(LogLevelProgress, "Retrieving Gsm service");
        Gsm& gsm = Gsm::Instance();
        if (!gsm.IsValid() ||
            !ConnectAll(&gsm, this,
                        {{SIGNAL(Ready()), SLOT(OnGsmReady())},
                         {SIGNAL(Failed()), SLOT(OnGsmFailed())},
                         {SIGNAL(ModemOn()), SLOT(OnGsmModemOn())},
                         {SIGNAL(ModemRegistered()), SLOT(OnGsmModemRegistered())},
                         {SIGNAL(ModemOff()), SLOT(OnGsmModemOff())},
                         {SIGNAL(SignalQuality(uint)), SLOT(OnGsmSignalQuality(uint))},
                         {SIGNAL(MessageReceived(QString, QVariantMap)), SLOT(OnGsmSmsReceived(QString, QVariantMap))},
                         {SIGNAL(CallIncoming(QVariantMap)), SLOT(OnGsmCallIncoming(QVariantMap))},
                         {SIGNAL(CallAnswered(QVariantMap)), SLOT(OnGsmCallAnswered(QVariantMap))},
                         {SIGNAL(CallRejected()), SLOT(OnGsmCallRejected())},
                         {SIGNAL(CallTerminated()), SLOT(OnGsmCallTerminated())}})) {
            LOG(LogLevelError, "FATAL: error connecting Gsm service");
            throw QtConcurrent::Exception();
        }
        LOG(LogLevelProgress, "Gsm service connected");

        // Qt queues the signals that arrive before the event loop runs. A signal that is read when the delivery begins
        // overtakes the queued ones (doDispatch() in QtDBus takes new messages first). If ModemRegistered overtakes
        // ModemPowered in this way, gsmPowerToRegisteredTimer power-cycles the modem.
        if (gsm.IsReady())
            OnGsmReady();
        else
            LOG(LogLevelWarning, "UNEXPECTED: Gsm service not ready. Will wait for it.");

        const struct {
            QTimer& timer;
            const char* name;
            int intervalMs;
            const char* slot;
        } timers[] = {
            {gsmPowerToRegisteredTimer, "gsmPowerToRegisteredTimer", TimeLimits::PowerToRegisteredMs,
             SLOT(OnGsmPowerToRegisteredTimeout())},
            {gsmSignalQualityPingTimer, "gsmSignalQualityPingTimer", SignalQualityPingMs,
             SLOT(OnGsmSignalQualityPingTimeout())},
            {gsmSignalQualityNotReceivedTimer, "gsmSignalQualityNotReceivedTimer", SignalQualityTimeoutMs,
             SLOT(OnGsmSignalQualityTimeout())},
            {gsmPPPPresenceTimer, "gsmPPPPresenceTimer", PppPresenceCheckMs, SLOT(OnGsmPPPPresenceTimeout())},
            {pendingOutgoingCallTimer, "pendingOutgoingCallTimer", TimeLimits::OutgoingCallS * 1000,
             SLOT(OnGsmCallTimeout())},
        };
        for (const auto& [timer, name, intervalMs, slot] : timers) {
            // A coarse timer may fire 5 % early, while the modem is still about to register.
            timer.setTimerType(Qt::PreciseTimer);
            timer.setInterval(intervalMs);
            if (!connect(&timer, SIGNAL(timeout()), this, slot)) {
                LOG(LogLevelError, "FATAL: error connecting %s", name);
                throw QtConcurrent::Exception();
            }
            LOG(LogLevelProgress, "%s connected", name);
        }

        if (!connect(&SmsOutController::Instance(), SIGNAL(SmsSent(Sms, bool)), SLOT(OnSmsSent(Sms, bool)))) {
            LOG(LogLevelError, "FATAL: error connecting SmsOutController");
            throw QtConcurrent::Exception();
        }
        LOG(LogLevelProgress, "SmsOutController connected");

        // Queue these, so that a failed call is torn down before the next one begins.
        if (!connect(this, SIGNAL(VoiceCallPrematureFail()), SLOT(OnGsmCallRejected()), Qt::QueuedConnection) ||
            !connect(this, SIGNAL(StartCallLoop(QStringList)), SLOT(StartCallLoopSlot(QStringList)),
                     Qt::QueuedConnection)) {
            LOG(LogLevelError, "FATAL: error connecting PhoneManager");
            throw QtConcurrent::Exception();
        }
        LOG(LogLevelProgress, "PhoneManger auto-connected");

        initialized = true;
    } catch (...) {
        LOG(LogLevelProgress, "FATAL: PhoneManager creation error");
    }
}

// Power policy

bool PhoneManager::GetPhoneEnabledConfig()
{
    return ReadSetting(PhoneSection, PhoneEnabledKey);
}

bool PhoneManager::GetDataGprsEnabledConfig()
{
    return ReadSetting(DataSection, GprsEnabledKey);
}

void PhoneManager::SetPhoneEnabledConfig(bool enabled)
{
    Configuration configuration(Names::PhoneObject);
    if (!configuration.IsValid()) {
        LOG(LogLevelError, "Can't save PHONE config (invalid Configuration proxy)");
        return;
    }

    const char* value = enabled ? SettingOn : SettingOff;
    // The result is ignored on purpose: the power decision reads the setting back.
    configuration.WriteConfigValue(PhoneSection, PhoneEnabledKey, value, false);
    LOG(LogLevelProgress, "PHONE config succesfully saved (enabled=%s)", value);
}

int PhoneManager::PhoneUsers()
{
    const bool phone = GetPhoneEnabledConfig();
    const bool gprs = GetDataGprsEnabledConfig();
    LOG(LogLevelProgress, "phoneEnabled %d, gprsEnabled %d (forcedOff %d)", phone, gprs, forcedOff);
    return phone + gprs;
}

bool PhoneManager::EvaluatePhonePower()
{
    GsmPowerController& power = GsmPowerController::Instance();
    const int users = PhoneUsers();

    if (forcedOff && power.Status() != GsmPowerStatusForcedOff) {
        LOG(LogLevelWarning, "EvaluatePhonePower() forced OFF");
        return power.ForceOff(true);
    }

    LOG(LogLevelWarning, "EvaluatePhonePower() users %d, sim check try %d, sim status %d", users, simCheckTry,
        simStatus);

    bool result;
    if (users < 1) {
        result = power.RequestOff();
    } else {
        const bool wasOff = power.Status() == GsmPowerStatusUnknown || power.Status() == GsmPowerStatusOff;
        result = power.RequestOn();
        if (simStatus == SimStatusUnchecked)
            simStatus = SimStatusChecking;
        // Start the watchdog even if the power-on failed: the daemon may have acted and only answered too late.
        if (wasOff)
            gsmPowerToRegisteredTimer.start();
    }

    if (!forcedOff && power.Status() == GsmPowerStatusForcedOff) {
        LOG(LogLevelWarning, "EvaluatePhonePower() Remove forced OFF");
        return power.ForceOff(false);
    }
    return result;
}

int PhoneManager::PhoneSetEnabled(bool Enabled)
{
    SetPhoneEnabledConfig(Enabled);
    simCheckTry = 0;
    LOG(LogLevelProgress, "New PhoneEnabled %d", Enabled);
    return EvaluatePhonePower() ? StatusCodeSuccess : StatusCodePowerFailed;
}

int PhoneManager::ForcePhoneOff(bool Off)
{
    forcedOff = Off;
    simCheckTry = 0;
    LOG(LogLevelWarning, "New ForcePhoneOff state %d", Off);
    return EvaluatePhonePower() ? StatusCodeSuccess : StatusCodePowerFailed;
}

// Modem life. Every power cycle starts with RequestOff(). When the modem reports that it is off, OnGsmModemOff()
// decides whether to power it on again.

void PhoneManager::OnGsmReady()
{
    LOG(LogLevelProgress, "Gsm service becomes READY");
    gsmPowerToRegisteredTimer.stop();
    // A daemon that has just started does not know the modem's state: start over from off.
    GsmPowerController::Instance().ResetOff();
    simStatus = SimStatusUnchecked;
    simCheckTry = 0;
    EvaluatePhonePower();
}

void PhoneManager::OnGsmFailed()
{
    LOG(LogLevelWarning, "Gsmd service becomes FAILED");
    if (!AnyCallInProgress())
        return;

    LOG(LogLevelWarning, "Hangup after failure");
    AbandonCalls();
}

void PhoneManager::OnGsmModemOn()
{
    LOG(LogLevelWarning, "Gsm modem POWERED");
    Q_EMIT PhoneStatus(ModemStatusOn);
    if (simStatus == SimStatusChecking)
        QTimer::singleShot(TimeLimits::SimCheckDelayMs, Qt::PreciseTimer, this, SLOT(OnSimCheckContinue()));
    else
        LOG(LogLevelWarning, "Modem POWERED but not checking sim since already %d", simStatus);
}

void PhoneManager::OnSimCheckContinue()
{
    if (simStatus != SimStatusChecking) {
        LOG(LogLevelWarning, "OnSimCheckContinue() but not checking sim since already %d", simStatus);
        return;
    }

    Gsm& gsm = Gsm::Instance();
    bool present = false;
    if (gsm.IsSimPresent(present)) {
        simStatus = present ? SimStatusPresent : SimStatusAbsent;
        LOG(LogLevelWarning, "Now Sim is %d (try %d)", present, simCheckTry);
        Q_EMIT SimPresent(present);
        if (present) {
            int modemStatus = ModemStatusOff;
            if (gsm.GetModemStatus(modemStatus) && modemStatus == ModemStatusRegistered) {
                LOG(LogLevelProgress, "..So finally Modem is registered");
                OnGsmModemRegistered();
            }
            return;
        }
    } else {
        LOG(LogLevelWarning, "Sim check failed (error reply) on try %d", simCheckTry);
    }

    // Repeat for as long as the modem is wanted: a card may be inserted at any time.
    LOG(LogLevelWarning, "Rebooting the modem..");
    ++simCheckTry;
    simStatus = SimStatusUnchecked;
    GsmPowerController::Instance().RequestOff();
}

void PhoneManager::OnGsmModemRegistered()
{
    LOG(LogLevelProgress, "Gsm modem REGISTERED");
    if (simStatus != SimStatusPresent) {
        LOG(LogLevelWarning, "But SIM still not validated (%d)..", simStatus);
        return;
    }

    LOG(LogLevelWarning, "PHONE_STATUS_REGISTERED and SIM present");
    gsmPowerToRegisteredTimer.stop();
    Q_EMIT PhoneStatus(ModemStatusRegistered);
    gsmSignalQualityNotReceivedTimer.start();
    gsmSignalQualityPingTimer.start();
    if (GetDataGprsEnabledConfig())
        gsmPPPPresenceTimer.start();
}

void PhoneManager::OnGsmModemOff()
{
    LOG(LogLevelWarning, "Gsm modem OFF");
    if (AnyCallInProgress())
        AbandonCalls();

    Q_EMIT PhoneStatus(ModemStatusOff);
    // gsmPPPPresenceTimer keeps running. If the data link is not back when it fires, the modem is cycled once more.
    gsmPowerToRegisteredTimer.stop();
    gsmSignalQualityNotReceivedTimer.stop();
    gsmSignalQualityPingTimer.stop();

    GsmPowerController& power = GsmPowerController::Instance();
    if (power.Status() == GsmPowerStatusOn) // it went off by itself
        power.ResetOff();
    EvaluatePhonePower();
}

void PhoneManager::OnGsmSignalQuality(uint sq)
{
    LOG(LogLevelProgress, "Gsm signal: %u", sq);
    gsmSignalQualityNotReceivedTimer.stop();
    gsmSignalQualityPingTimer.stop();
    if (simStatus == SimStatusPresent) {
        gsmSignalQualityNotReceivedTimer.start();
        gsmSignalQualityPingTimer.start();
    }
}

void PhoneManager::OnGsmSignalQualityPingTimeout()
{
    LOG(LogLevelProgress, "Didn't received a Signal Quality 3 mins.. Ping modem");
    Gsm::Instance().PingRegistration();
}

void PhoneManager::OnGsmSignalQualityTimeout()
{
    LOG(LogLevelWarning, "Signal Quality not received in 10 mins.. Power Cycle the modem");
    gsmSignalQualityPingTimer.stop();
    GsmPowerController::Instance().RequestOff();
}

void PhoneManager::OnGsmPowerToRegisteredTimeout()
{
    LOG(LogLevelWarning, "Timeout receiving REGISTERED status. Power Cycle the modem");
    GsmPowerController::Instance().RequestOff();
}

void PhoneManager::OnGsmPPPPresenceTimeout()
{
    if (LookUpLink(PppInterface) != LinkStateDown)
        return; // The link is up, or the look-up failed and the next check repeats it.

    LOG(LogLevelWarning, "PPP Is not up after 10 minutes. Power Cycle the modem");
    gsmPPPPresenceTimer.stop();
    GsmPowerController::Instance().RequestOff();
}

int PhoneManager::GetStatus(uint& PhoneStatus, uint& SimStatus, uint& Rssi, uint& Users, bool& Forced)
{
    const Gsm& gsm = Gsm::Instance();
    int result = StatusCodeSuccess;

    int modemStatus = ModemStatusOff;
    if (gsm.GetModemStatus(modemStatus)) {
        PhoneStatus = modemStatus;
    } else {
        LOG(LogLevelError, "Error retrieving Gsm Status");
        result = StatusCodeUnreadable;
    }

    SimStatus = simStatus;
    Rssi = 0;
    if (PhoneStatus == ModemStatusRegistered && !gsm.GetSignalQuality(Rssi)) {
        LOG(LogLevelError, "Error retrieving Gsm Rssi");
        result = StatusCodeUnreadable;
    }

    Users = GetPhoneEnabledConfig();
    Forced = GsmPowerController::Instance().Status() == GsmPowerStatusForcedOff;
    return result;
}

int PhoneManager::SetApn(const QString& Apn, const QString& Username, const QString& Password)
{
    LOG(LogLevelWarning, "SetApn(%s)", Apn.toLocal8Bit().constData());
    EvaluatePhonePower();
    if (simStatus != SimStatusPresent) {
        LOG(LogLevelWarning, "Sim is not present (or still not checked): command refused");
        return StatusCodeNoSim;
    }
    return Gsm::Instance().SetGprsApn(Apn, Username, Password) ? StatusCodeSuccess : StatusCodeApnNotSet;
}

// SMS

int PhoneManager::QueueSms(const QString& PhoneNumber, const QString& Message, uint&)
{
    if (simStatus != SimStatusPresent) {
        LOG(LogLevelWarning, "Sim is not present (or still not checked): command refused");
        return StatusCodeNoSim;
    }

    const uint id = SmsOutController::Instance().SmsSend(PhoneNumber, Message);
    if (id == 0) {
        LOG(LogLevelError, "Error queuing sms (SmsSend)");
        return StatusCodeSmsNotQueued;
    }
    LOG(LogLevelProgress, "Sms id=%d QUEUED", id);
    return StatusCodeSuccess;
}

void PhoneManager::OnSmsSent(const Sms& sms, bool sent)
{
    LOG(LogLevelProgress, "Sms id=%d %s", sms.id, sent ? "SENT" : "DISCARDED");
    Q_EMIT SmsSent(sms.id, sent);
}

void PhoneManager::OnGsmSmsReceived(const QString& Text, const QVariantMap& Info)
{
    LOG(LogLevelProgress, "Sms RECEIVED");
    Q_EMIT SmsReceived(Text, Info);
}

// Outgoing call

int PhoneManager::VoiceCallMake(const QString& PhoneNumber)
{
    Gsm& gsm = Gsm::Instance();

    LOG(LogLevelWarning, "Gsm phone call MAKE");
    if (simStatus != SimStatusPresent) {
        LOG(LogLevelWarning, "Sim is not present (or still not checked): can't make a call");
        return StatusCodeNoSim;
    }
    int modemStatus = ModemStatusOff;
    if (!gsm.GetModemStatus(modemStatus) || modemStatus != ModemStatusRegistered) {
        LOG(LogLevelWarning, "Gsm is not powered ON: can't make a call");
        return StatusCodeNotRegistered;
    }
    if (outgoingCallInProgress) {
        LOG(LogLevelWarning, "Already an outgoing call in progress!");
        return StatusCodeCallFailed;
    }

    // Nothing is undone if a step fails from here on. In a loop, VoiceCallPrematureFail() leads to the teardown. A
    // single call that was placed ends like any other; if it was refused, the phone stays busy until the next teardown.
    outgoingCallInProgress = true;
    if (!gsm.Call(PhoneNumber)) {
        LOG(LogLevelError, "Error making call (Call)");
        return StatusCodeCallFailed;
    }
    LOG(LogLevelWarning, "Call succesfully started");
    LOG(LogLevelWarning, "Waiting reply in %d seconds...", TimeLimits::OutgoingCallS);
    pendingOutgoingCallTimer.start();

    const bool audible = RouteOutput() && SelectInput(INPUT_SOURCE_GSM_EAR_AUX, "INPUT_SOURCE_GSM_EAR_AUX") &&
                         StartGsmVoice(std::source_location::current());
    return audible ? StatusCodeSuccess : StatusCodeCallFailed;
}

void PhoneManager::OnGsmCallAnswered(const QVariantMap&)
{
    if (incomingCallInProgress) // this service answered it
        return;

    pendingOutgoingCallTimer.stop();
    SetCallLoopInProgress(false);
    LOG(LogLevelWarning, "Gsm phone call ANSWERED by receiver");
    Q_EMIT VoiceCall(VoiceCallStatusAnswered);
    LOG(LogLevelProgress, "EMERGENCY GSM CALL SUCCESFULLY STARTED");
}

void PhoneManager::OnGsmCallTimeout()
{
    // The timer repeats: it hangs up again until the call has ended.
    LOG(LogLevelWarning, "Gsm phone outgoing call TIMEOUT");
    if (!Gsm::Instance().Hangup())
        LOG(LogLevelError, "Can't hungup outgoing call");
}

void PhoneManager::HangupSlot()
{
    Gsm::Instance().HangupAll();
}

// Emergency call loop

int PhoneManager::VoiceCallLoopMake(const QStringList& PhoneNumbersList)
{
    if (IsCallLoopInProgress()) {
        LOG(LogLevelError, "Call loop already in progress!");
        return StatusCodeCallFailed;
    }
    if (incomingCallInProgress) {
        LOG(LogLevelWarning, "Hanging up incoming call to start new emergency call");
        Gsm::Instance().HangupAll();
        QTimer::singleShot(SecondHangupDelayMs, Qt::PreciseTimer, this, SLOT(HangupSlot()));
    }
    callLoopNumbers = PhoneNumbersList;
    QTimer::singleShot(CallLoopStartDelayMs, Qt::PreciseTimer, this, SLOT(StartCallLoopSlot()));
    return StatusCodeSuccess;
}

void PhoneManager::StartCallLoopSlot(const QStringList& PhoneNumbersList)
{
    RunCallLoop(&PhoneNumbersList, std::source_location::current());
}

void PhoneManager::StartCallLoopSlot()
{
    RunCallLoop(nullptr, std::source_location::current());
}

/// Starts the loop by calling the first number. OnGsmCallRejected() calls each of the others.
/// @param numbers replaces the stored list, unless it is null.
void PhoneManager::RunCallLoop(const QStringList* numbers, const std::source_location& where)
{
    LOG_AT(where, LogLevelTrace, "Gsm phone start call loop");
    {
        const QMutexLocker lock(&callLoopMutex);
        if (numbers)
            callLoopNumbers = *numbers;
        callLoopIndex = 0;
        callLoopInProgress = !callLoopNumbers.isEmpty();
    }
    if (callLoopNumbers.isEmpty()) {
        LOG_AT(where, LogLevelProgress, "Contact Loop is over!");
        return;
    }

    const QString number = callLoopNumbers.at(callLoopIndex);
    if (VoiceCallMake(number) != StatusCodeSuccess) {
        Q_EMIT VoiceCallPrematureFail();
        LOG_AT(where, LogLevelWarning, "Impossible to start the Voice Call Loop with %s",
               number.toLocal8Bit().constData());
    } else {
        LOG_AT(where, LogLevelWarning, "Succesfully started Voice Call Loop with %s", number.toLocal8Bit().constData());
    }
}

void PhoneManager::OnGsmCallRejected()
{
    LOG(LogLevelProgress, "Call Rejected");
    bool callNext = false;
    {
        const QMutexLocker lock(&callLoopMutex);
        if (callLoopInProgress) {
            ++callLoopIndex;
            callNext = callLoopIndex < callLoopNumbers.size();
            callLoopInProgress = callNext;
            if (callNext)
                LOG(LogLevelProgress, "Contact Loop index: %d", callLoopIndex);
        }
    }

    OnGsmCallTerminated();
    if (!callNext) {
        LOG(LogLevelProgress, "Contact Loop is over!");
        return;
    }

    LOG(LogLevelProgress, "Starting new call...");
    if (VoiceCallMake(callLoopNumbers.at(callLoopIndex)) != StatusCodeSuccess)
        Q_EMIT VoiceCallPrematureFail();
}

// Incoming call

void PhoneManager::OnGsmCallIncoming(const QVariantMap& CallInfo)
{
    Gsm& gsm = Gsm::Instance();

    LOG(LogLevelWarning, "Gsm phone call INCOMING");
    Q_EMIT VoiceCall(VoiceCallStatusIncoming);
    incomingCallInProgress = true;

    const QString number = CallInfo.value(LineIdentificationKey).toString();
    LOG(LogLevelProgress, "LineIdentification: %s", number.toLocal8Bit().constData());

    if (!IsAuthorised(number)) {
        LOG(LogLevelWarning, "Call from unauthorized user (%s): won't answer", number.toLocal8Bit().constData());
        if (!gsm.Hangup())
            LOG(LogLevelError, "Can't hungup outgoing call");
        LOG(LogLevelProgress, "GSM STREAM SUCCESFULLY STARTED");
        return;
    }

    if (!StartGsmVoice(std::source_location::current()) || !RouteOutput() ||
        !SelectInput(INPUT_SOURCE_GSM_EAR_MIC, "INPUT_SOURCE_GSM_EAR_MIC"))
        return;

    sleep(AnswerDelayS);
    LOG(LogLevelTrace, "Waiting 3 s before answering call...");
    if (!gsm.Answer()) {
        LOG(LogLevelWarning, "Can't answer incoming call");
        OnGsmCallTerminated();
        return;
    }
    LOG(LogLevelProgress, "GSM STREAM SUCCESFULLY STARTED");
}

// Teardown

void PhoneManager::OnGsmCallTerminated()
{
    LOG(LogLevelWarning, "Gsm phone call TERMINATED");
    Q_EMIT VoiceCall(VoiceCallStatusTerminated);
    pendingOutgoingCallTimer.stop();

    {
        AudioClient<SoundManagerProxy> soundManager(TimeLimits::SoundManagerCallMs);
        if (!soundManager.isValid())
            return; // The call flags stay set until the modem goes off or the daemon fails.

        const bool stopped =
            FinishCall("SoundManager->StopPlay(gsmvoice)", soundManager.StopPlay(GsmVoiceStream, QString()));
        DefaultAmpliMaskRestore();
        OutputTypeRestore();
        if (!stopped)
            LOG(LogLevelWarning, "Failed to request SoundManager->StopPlay(gsmvoice)");
    }

    outgoingCallInProgress = false;
    if (incomingCallInProgress) {
        incomingCallInProgress = false;
        LOG(LogLevelProgress, "GSM STREAM SUCCESFULLY STOPPED");
    } else {
        LOG(LogLevelProgress, "EMERGENCY GSM CALL SUCCESFULLY STOPPED");
    }
}

bool PhoneManager::AnyCallInProgress()
{
    return incomingCallInProgress || outgoingCallInProgress || IsCallLoopInProgress();
}

bool PhoneManager::IsCallLoopInProgress()
{
    const QMutexLocker lock(&callLoopMutex);
    return callLoopInProgress;
}

void PhoneManager::SetCallLoopInProgress(bool inProgress)
{
    const QMutexLocker lock(&callLoopMutex);
    callLoopInProgress = inProgress;
}

/// Ends the loop and every call, once the modem or its daemon is gone.
void PhoneManager::AbandonCalls()
{
    SetCallLoopInProgress(false);
    incomingCallInProgress = false;
    outgoingCallInProgress = false;
    OnGsmCallTerminated();
}

// Audio: an outgoing call switches output, input and voice stream, an incoming one voice stream, output and input. All
// stop at the first step that fails.

/// Saves the current output type and switches to that of a call.
bool PhoneManager::RouteOutput()
{
    return OutputTypeSave() && OutputTypeSet(OutputTypeCall);
}

/// Saves the current amplifier mask, switches to that of a call and starts the call's voice stream.
bool PhoneManager::StartGsmVoice(const std::source_location& where)
{
    AudioClient<SoundManagerProxy> soundManager(TimeLimits::SoundManagerCallMs, where);
    const auto request = [&](const char* label, const QDBusPendingReply<int>& reply) {
        return FinishRequest(label, label, reply, where);
    };
    return soundManager.isValid() && DefaultAmpliMaskSave() &&
           request("SoundManager->SetAmplifiersDefault(AMPS_MASK_AUX)",
                   soundManager.SetAmplifiersDefault(AMPS_MASK_AUX)) &&
           request("SoundManager->PlayGsmVoice", soundManager.PlayGsmVoice());
}

bool PhoneManager::DefaultAmpliMaskSave()
{
    AudioClient<SoundManagerProxy> soundManager(TimeLimits::SoundManagerMaskMs);
    if (!soundManager.isValid())
        return false;

    if (FinishCall("SoundManager->GetAmplifiersDefault()", soundManager.GetAmplifiersDefault(savedDefaultAmpliMask)))
        return true;
    LOG(LogLevelWarning, "Failed to request SoundManager->GetAmplifiersDefault()");
    return false;
}

bool PhoneManager::DefaultAmpliMaskRestore()
{
    AudioClient<SoundManagerProxy> soundManager(TimeLimits::SoundManagerMaskMs);
    return soundManager.isValid() &&
           FinishRequest("SoundManager->SetAmplifiersDefault()",
                         "SoundManager->SetAmplifiersDefault(" + QByteArray::number(savedDefaultAmpliMask) + ')',
                         soundManager.SetAmplifiersDefault(savedDefaultAmpliMask));
}

bool PhoneManager::OutputTypeSave()
{
    AudioClient<AudioOutCtlProxy> audioOutCtl(TimeLimits::AudioControlMs);
    if (!audioOutCtl.isValid())
        return false;

    if (Succeeded(audioOutCtl.GetOutputType(savedOutputType))) {
        LOG(LogLevelProgress, "[OutputType] Successfully saved OutputType=%d", savedOutputType);
        return true;
    }
    LOG(LogLevelWarning, "Can't read current OutputType");
    return false;
}

/// Always returns true: a call with the wrong output type is better than none.
bool PhoneManager::OutputTypeSet(uint outputType)
{
    AudioClient<AudioOutCtlProxy> audioOutCtl(TimeLimits::AudioControlMs);
    if (audioOutCtl.isValid() &&
        FinishRequest("audioOutCtl->SetOutputType",
                      "audioOutCtl->SetOutputType(" + QByteArray::number(static_cast<int>(outputType)) + ')',
                      audioOutCtl.SetOutputType(outputType)))
        LOG(LogLevelProgress, "[OutputType] Successfully set OutputType=%d", outputType);
    return true;
}

bool PhoneManager::OutputTypeRestore()
{
    const bool restored = OutputTypeSet(savedOutputType);
    if (restored)
        LOG(LogLevelProgress, "[OutputType] Successfully restored OutputType=%d", savedOutputType);
    else
        LOG(LogLevelWarning, "Failed to restore OutputType=%d", savedOutputType);
    return restored;
}
