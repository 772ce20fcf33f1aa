#include "GsmDaemon.h"

#include "GsmdLog.h"
#include "PeerCodes.h"
#include "PhoneCodes.h"
#include "TimeLimits.h"

#include <QDBusMessage>
#include <QPointer>

#include <algorithm>
#include <utility>

namespace
{

/// The status that the contract's methods answer.
enum Answer : int {
    AnswerSuccess = PeerStatusSuccess,
    AnswerRefused = 1, ///< impossible at the moment
    AnswerFailed = 2,  ///< the stack, the modem or the network did not do it
    AnswerLate = 3,    ///< not finished, but the service does not wait longer
};

constexpr int StepRetryMs = 5000;
/// A modem that goes off earlier after its power-on is powered on again only after this time.
constexpr int MinOnMs = 5000;
constexpr int HangupRetryMs = 2000;
constexpr int DialLimitMs = 40000;       ///< a modem that takes longer to begin a call has failed
constexpr int HangUpDialLimitMs = 10000; ///< the same for a call that is hung up as soon as it begins
constexpr int StopLimitMs = 3000;
// Answer before the service stops waiting.
constexpr int AnswerLimitMs = TimeLimits::GsmCallMs - 3000;
constexpr int ApnLimitMs = TimeLimits::GsmShortMs - 500;
/// Limits the unanswered requests. The service makes one at a time.
constexpr int MaxLateReplies = 64;

constexpr int MaxStrength = 100;

const char* StatusName(int status)
{
    switch (status) {
    case ModemStatusOn: return "on";
    case ModemStatusRegistered: return "registered";
    default: return "off";
    }
}

QVariantMap CallInfo(const QString& number)
{
    return {{QString::fromLatin1(LineIdentificationKey), number}};
}

}

/// A request that is answered later: exactly once, and at the latest when its time limit expires.
class GsmDaemon::LateReply : public QTimer
{
public:
    LateReply(GsmDaemon& daemon, int limitMs, const std::function<void()>& onTimeout)
        : QTimer(&daemon),
          daemon(daemon),
          bus(daemon.connection()),
          request(daemon.message()),
          onTimeout(onTimeout)
    {
        daemon.setDelayedReply(true);
        daemon.lateReplies.insert(this);
        setSingleShot(true);
        setTimerType(Qt::PreciseTimer); // a coarse one may expire before the stack gives up
        callOnTimeout(this, [this] { OnTimeout(); });
        start(limitMs);
    }

    void Send(int status)
    {
        if (!daemon.lateReplies.remove(this))
            return;
        stop();
        bus.send(request.createReply(status));
        deleteLater();
    }

private:
    void OnTimeout()
    {
        GSMD_LOG(LogLevelWarning, "%s takes too long", qPrintable(request.member()));
        Send(AnswerLate);
        if (onTimeout)
            onTimeout();
    }

    GsmDaemon& daemon;
    QDBusConnection bus;
    const QDBusMessage request;
    const std::function<void()> onTimeout;
};

GsmDaemon::GsmDaemon() : reported(ModemStatusOff)
{
    for (QTimer* timer : {&stepTimer, &dialTimer, &hangupTimer})
        timer->setSingleShot(true);
    connect(&stepTimer, &QTimer::timeout, this, &GsmDaemon::TakeNextPowerStep);
    connect(&dialTimer, &QTimer::timeout, this, [this] { OnDialled(QString()); });
    connect(&hangupTimer, &QTimer::timeout, this, &GsmDaemon::TryHangups);
}

GsmDaemon::~GsmDaemon() = default;

void GsmDaemon::Attach(std::unique_ptr<ModemStack> newStack)
{
    stack = std::move(newStack);
    powerOnDelay = QDeadlineTimer();
    connect(stack.get(), &ModemStack::ModemChanged, this, &GsmDaemon::OnModemChanged);
    connect(stack.get(), &ModemStack::RegistrationChanged, this, &GsmDaemon::ReportDueChanges);
    connect(stack.get(), &ModemStack::StrengthChanged, this, &GsmDaemon::ReportStrength);
    connect(stack.get(), &ModemStack::CallChanged, this, &GsmDaemon::OnCallChanged);
    connect(stack.get(), &ModemStack::MessageReceived, this, &GsmDaemon::MessageReceived);
    OnModemChanged();
}

void GsmDaemon::Detach()
{
    stack.reset();
    powerStep.reset();
    FailLateReplies();
    OnModemChanged();
    EndCalls();
}

void GsmDaemon::Stop()
{
    stopping = true;
    QTimer::singleShot(StopLimitMs, this, &GsmDaemon::Stopped);
    CallHangupAll();
    OnCallGone();
}

// Power and registration

int GsmDaemon::Status() const
{
    if (!stack || !stack->IsOn())
        return ModemStatusOff;
    return stack->IsRegistered() ? ModemStatusRegistered : ModemStatusOn;
}

int GsmDaemon::ModemSetEnabled(bool Enable)
{
    GSMD_LOG(LogLevelProgress, "Power %s requested", Enable ? "on" : "off");
    wanted = Enable;
    if (Enable) {
        modemOffDue = true;
    } else {
        // The service regards the modem as off from now on. If it asks for power again before the modem is off,
        // everything must be reported again.
        reported = ModemStatusOff;
        DropCalls();
        FailLateReplies();
    }
    stepTimer.stop();
    TakeNextPowerStep();
    // Answer the request before emitting any signal.
    QMetaObject::invokeMethod(this, &GsmDaemon::ReportDueChanges, Qt::QueuedConnection);
    return AnswerSuccess;
}

void GsmDaemon::OnModemChanged()
{
    const QString path = stack ? stack->ModemPath() : QString();
    if (!path.isEmpty() && !modemKnown) {
        GSMD_LOG(LogLevelProgress, "Modem %s", qPrintable(path));
        Q_EMIT ModemAdded(path);
    } else if (path.isEmpty() && modemKnown) {
        GSMD_LOG(LogLevelWarning, "The modem is gone");
    }
    modemKnown = !path.isEmpty();
    changedSinceStep = true;
    stepTimer.stop();
    ReportDueChanges();
}

/// Compares the modem's state with the requested and the reported one, emits the signals that are due, and takes
/// the next power step.
void GsmDaemon::ReportDueChanges()
{
    const int status = Status();
    const bool lost = status == ModemStatusOff && reported != ModemStatusOff;
    if (lost) {
        wanted.reset(); // until the service asks again
        // The service does so at once. Delay the power-on of a modem that does not stay on.
        if (sincePowered.elapsed() < MinOnMs)
            powerOnDelay.setRemainingTime(MinOnMs);
    }

    const bool turning = powerStep && powerStep != wanted;
    if (IsWanted() && status != ModemStatusOff && !turning) {
        Report(status);
    } else if (!IsWanted() && status == ModemStatusOff && modemOffDue && (lost || !turning)) {
        GSMD_LOG(LogLevelWarning, "Modem off%s", lost ? ", by itself" : "");
        modemOffDue = false;
        reported = ModemStatusOff;
        DropCalls();
        FailLateReplies();
        Q_EMIT ModemOff();
    } else if (status == ModemStatusOff && !calls.isEmpty()) {
        EndCalls();
    }
    TakeNextPowerStep();
}

/// Reports a change of a modem that is on. A loss of the network is reported as ModemPowered alone.
void GsmDaemon::Report(int status)
{
    if (status == reported)
        return;
    GSMD_LOG(LogLevelWarning, "Modem %s -> %s", StatusName(reported), StatusName(status));
    if (reported == ModemStatusOff)
        sincePowered.start();
    if (reported != ModemStatusOn)
        Q_EMIT ModemPowered();
    reported = status;
    if (status == ModemStatusRegistered) {
        Q_EMIT ModemRegistered();
        ReportStrength();
        if (apn)
            stack->BringUpLink(*apn);
    }
}

void GsmDaemon::TakeNextPowerStep()
{
    if (!stack || !wanted || powerStep || stepTimer.isActive())
        return;
    if (*wanted && !powerOnDelay.hasExpired()) {
        stepTimer.start(powerOnDelay.remainingTime());
        return;
    }
    changedSinceStep = false;
    if (stack->TakePowerStep(*wanted, [this](bool success) { OnStepDone(success); }))
        powerStep = wanted;
}

void GsmDaemon::OnStepDone(bool success)
{
    if (!success)
        GSMD_LOG(LogLevelWarning, "The modem did not take a step to power %s", *powerStep ? "on" : "off");
    powerStep.reset();
    // A step may be reported as successful and have changed nothing.
    if (!success || !changedSinceStep)
        stepTimer.start(StepRetryMs);
    ReportDueChanges();
}

int GsmDaemon::ModemGetStatus(int& ModemStatus)
{
    ModemStatus = Status();
    return AnswerSuccess;
}

int GsmDaemon::IsSimPresent(bool& Present)
{
    const std::optional<bool> present = stack ? stack->SimPresent() : std::nullopt;
    Present = present.value_or(false);
    return present ? AnswerSuccess : AnswerRefused;
}

int GsmDaemon::SignalStrength(int& Strength)
{
    const std::optional<int> strength = reported == ModemStatusRegistered ? stack->Strength() : std::nullopt;
    Strength = std::clamp(strength.value_or(0), 0, MaxStrength);
    return strength ? AnswerSuccess : AnswerRefused;
}

void GsmDaemon::ReportStrength()
{
    if (reported != ModemStatusRegistered)
        return;
    if (const std::optional<int> strength = stack->Strength())
        Q_EMIT SignalQuality(static_cast<uchar>(std::clamp(*strength, 0, MaxStrength)));
}

int GsmDaemon::PingRegistration()
{
    if (reported != ModemStatusRegistered)
        return AnswerRefused;
    stack->Ping([this](bool alive) { OnPinged(alive); });
    return AnswerSuccess;
}

/// Emits nothing if the modem does not answer, so that the service's watchdog restarts it.
void GsmDaemon::OnPinged(bool alive)
{
    if (alive)
        ReportStrength();
    else
        GSMD_LOG(LogLevelWarning, "The modem does not answer");
}

int GsmDaemon::GprsSetApn(const QString& Apn, const QString& Username, const QString& Password)
{
    if (Status() == ModemStatusOff || lateReplies.size() >= MaxLateReplies)
        return AnswerRefused;
    const ::Apn next{Apn, Username, Password};
    stack->SetApn(next, [this, next, answer = AnswerLater(ApnLimitMs)](bool success) {
        answer(success);
        if (!success)
            return;
        apn = next;
        stack->BringUpLink(next);
    });
    return AnswerLate;
}

// Calls

int GsmDaemon::Call(const QString& PhoneNumber)
{
    // Refuse a second call: a signal of its end would make the service stop the sound of the first.
    if (dial || CurrentCall() != calls.end())
        return AnswerRefused;

    dial.emplace();
    dial->call.number = PhoneNumber;
    dial->call.outgoing = true;
    ++dialSerial;
    dialTimer.start(DialLimitMs);
    TryDial();
    return AnswerSuccess;
}

/// Dials as soon as all calls that are being hung up have ended.
void GsmDaemon::TryDial()
{
    if (!dial || dial->issued || !calls.isEmpty())
        return;
    dial->issued = true;
    const auto onDialled = [this, serial = dialSerial](const QString& id) {
        if (dial && serial == dialSerial)
            OnDialled(id);
    };
    if (stack)
        stack->Dial(dial->call.number, onDialled);
    else
        QMetaObject::invokeMethod(
            this, [onDialled] { onDialled(QString()); }, Qt::QueuedConnection);
}

void GsmDaemon::OnDialled(const QString& id)
{
    if (id.isEmpty()) {
        GSMD_LOG(LogLevelWarning, "The call could not be made");
        FailDial();
        return;
    }
    AddCall({id, StackCall::StateDialling, dial->call.number});
}

/// Reports a call that could not be placed.
void GsmDaemon::FailDial()
{
    if (!dial)
        return;
    const CallRecord call = dial->call;
    dial.reset();
    dialTimer.stop();
    ReportEnd(call);
    OnCallGone();
}

/// Adds a call that the stack has and this daemon does not know yet.
GsmDaemon::Calls::iterator GsmDaemon::AddCall(const StackCall& call)
{
    const bool isIncoming = call.state == StackCall::StateIncoming || call.state == StackCall::StateWaiting;
    CallRecord record;
    if (isIncoming) {
        record.refused = dial || !calls.isEmpty() || call.state == StackCall::StateWaiting;
    } else if (dial && dial->issued) {
        record = dial->call;
        dial.reset();
        dialTimer.stop();
    } else {
        record.refused = true;
    }
    record.state = call.state;
    if (!call.number.isEmpty())
        record.number = call.number;

    const Calls::iterator met = calls.insert(call.id, record);
    if (record.refused) {
        GSMD_LOG(LogLevelWarning, "Hanging up %s", isIncoming ? "a second caller" : "a call that was made elsewhere");
        HangUp(met, false);
    } else if (record.hangingUp) {
        TryHangup(call.id);
    } else if (isIncoming) {
        Q_EMIT CallIncoming(CallInfo(record.number));
    }
    return met;
}

void GsmDaemon::OnCallChanged(const StackCall& call)
{
    Calls::iterator record = calls.find(call.id);
    if (record == calls.end()) {
        // Ignore callers while the service wants the modem off: the power-off ends their calls.
        const bool isIncoming = call.state == StackCall::StateIncoming || call.state == StackCall::StateWaiting;
        if (call.state == StackCall::StateEnded || (isIncoming && !IsWanted()))
            return;
        record = AddCall(call);
    }

    if (call.state == StackCall::StateEnded) {
        const CallRecord ended = *record;
        calls.erase(record);
        ReportEnd(ended);
        OnCallGone();
        return;
    }
    const bool changed = record->state != call.state;
    record->state = call.state;
    // A call that is answered while it is being hung up counts as unanswered.
    if (call.state == StackCall::StateActive && !record->answered && !record->hangingUp) {
        record->answered = true;
        if (record->outgoing)
            Q_EMIT CallAnswered(CallInfo(record->number));
    }
    if (changed)
        TryHangup(call.id);
}

/// Reports an outgoing call that nobody answered as rejected, whoever ended it: this makes an emergency loop continue.
/// Only a request to end all calls also ends the loop.
void GsmDaemon::ReportEnd(const CallRecord& call)
{
    if (call.refused)
        return;
    if (call.outgoing && !call.answered && !call.terminated)
        Q_EMIT CallRejected(CallInfo(call.number));
    else
        Q_EMIT CallTerminated(CallInfo(call.number));
}

void GsmDaemon::OnCallGone()
{
    TryDial();
    if (stopping && calls.isEmpty() && !dial)
        Q_EMIT Stopped();
}

/// Returns the ringing call, or else the current one.
GsmDaemon::Calls::iterator GsmDaemon::CurrentCall()
{
    Calls::iterator found = calls.end();
    for (Calls::iterator call = calls.begin(); call != calls.end(); ++call) {
        if (call->refused || call->hangingUp)
            continue;
        if (found == calls.end() || call->state == StackCall::StateIncoming)
            found = call;
    }
    return found;
}

int GsmDaemon::CallAnswer()
{
    const Calls::iterator call = CurrentCall();
    if (call == calls.end() || call->state != StackCall::StateIncoming || lateReplies.size() >= MaxLateReplies)
        return AnswerRefused;
    // The service regards a call that was not answered, or not in time, as ended.
    const auto giveUp = [this, id = call.key()] {
        if (const Calls::iterator unanswered = calls.find(id); unanswered != calls.end())
            HangUp(unanswered, false);
    };
    stack->Answer(call.key(), [giveUp, answer = AnswerLater(AnswerLimitMs, giveUp)](bool success) {
        answer(success);
        if (!success)
            giveUp();
    });
    return AnswerLate;
}

int GsmDaemon::CallHangup()
{
    if (const Calls::iterator call = CurrentCall(); call != calls.end())
        HangUp(call, false);
    HangUpDial(false);
    TryHangups();
    return AnswerSuccess;
}

int GsmDaemon::CallHangupAll()
{
    for (Calls::iterator call = calls.begin(); call != calls.end(); ++call)
        HangUp(call, true);
    HangUpDial(true);
    return AnswerSuccess;
}

void GsmDaemon::HangUp(Calls::iterator call, bool all)
{
    call->hangingUp = true;
    call->terminated |= all;
    TryHangup(call.key());
}

/// Marks the pending dial request, so that its call is hung up as soon as the stack has created it.
void GsmDaemon::HangUpDial(bool all)
{
    if (!dial)
        return;
    dial->call.hangingUp = true;
    dial->call.terminated |= all;
    dialTimer.start(dial->issued ? HangUpDialLimitMs : 0);
}

void GsmDaemon::TryHangups()
{
    for (const QString& id : calls.keys())
        TryHangup(id);
}

/// Hangs up a call that is marked for it, unless a request is under way. Tries again later if that fails.
void GsmDaemon::TryHangup(const QString& id)
{
    const Calls::iterator call = calls.find(id);
    if (call == calls.end() || !call->hangingUp || call->hangupRequested)
        return;
    call->hangupRequested = true;
    stack->Hangup(id, [this, id](bool success) {
        const Calls::iterator call = calls.find(id);
        if (call == calls.end())
            return;
        call->hangupRequested = false;
        if (!success)
            hangupTimer.start(HangupRetryMs);
    });
}

/// Forgets the calls, which ended with the modem. The service ends them by itself.
void GsmDaemon::DropCalls()
{
    calls.clear();
    dial.reset();
    dialTimer.stop();
    hangupTimer.stop();
    OnCallGone();
}

/// Reports the end of all calls and of a pending one, after a loss of the modem that no ModemOff has reported.
void GsmDaemon::EndCalls()
{
    const Calls ended = std::exchange(calls, {});
    hangupTimer.stop();
    for (const CallRecord& call : ended)
        ReportEnd(call);
    FailDial();
}

// Messages

int GsmDaemon::SendSms(const QString& Recipient, const QString& Text)
{
    if (Status() == ModemStatusOff || lateReplies.size() >= MaxLateReplies)
        return AnswerRefused;
    stack->SendSms(Recipient, Text, AnswerLater(ModemStack::SmsLimitMs));
    return AnswerLate;
}

// Late answers

/// Delays the answer to the current request.
/// @param onTimeout is called if the time limit expires first.
/// @return a function that sends the answer.
ModemStack::Done GsmDaemon::AnswerLater(int limitMs, const std::function<void()>& onTimeout)
{
    return [reply = QPointer<LateReply>(new LateReply(*this, limitMs, onTimeout))](bool success) {
        if (reply)
            reply->Send(success ? AnswerSuccess : AnswerFailed);
    };
}

void GsmDaemon::FailLateReplies()
{
    for (LateReply* reply : QSet<LateReply*>(lateReplies))
        reply->Send(AnswerFailed);
}
