#pragma once

#include "ModemStack.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <memory>
#include <optional>

/// A call as the service sees it.
struct CallRecord {
    StackCall::State state = StackCall::StateDialling;
    QString number;
    bool outgoing = false;
    bool answered = false;
    bool refused = false;         ///< the service is not notified of the call
    bool hangingUp = false;       ///< the stack is asked to hang up until the call has ended
    bool hangupRequested = false; ///< the stack has not answered the last request to hang up
    bool terminated = false;      ///< CallHangupAll ended it: reported as CallTerminated, which also ends a loop
};

/// A request to dial for which the stack has not created a call yet.
struct PendingDial {
    CallRecord call;
    bool issued = false; ///< passed to the stack; before that, it waits until calls that are being hung up have ended
};

/// Implements the GSM daemon's contract on a modem stack, in the same way for each stack. Methods return the contract's
/// status, 0 for success; those that take time answer later.
class GsmDaemon : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    GsmDaemon();
    ~GsmDaemon() override;

    /// Uses this stack from now on.
    void Attach(std::unique_ptr<ModemStack> stack);
    /// Handles the loss of the stack, and thus of the modem.
    void Detach();
    /// Hangs up all calls, then emits Stopped(), at the latest when the stack takes too long.
    void Stop();

    int Call(const QString& PhoneNumber);
    int CallAnswer();
    int CallHangup();
    int CallHangupAll();
    int GprsSetApn(const QString& Apn, const QString& Username, const QString& Password);
    int IsSimPresent(bool& Present);
    int ModemGetStatus(int& ModemStatus);
    int ModemSetEnabled(bool Enable);
    int PingRegistration();
    int SendSms(const QString& Recipient, const QString& Text);
    int SignalStrength(int& Strength);

Q_SIGNALS:
    void CallAnswered(QVariantMap CallInfo);
    void CallIncoming(QVariantMap CallInfo);
    void CallRejected(QVariantMap CallInfo);
    void CallTerminated(QVariantMap CallInfo);
    void MessageReceived(QString Text, QVariantMap Info);
    void ModemAdded(QString ObjectPath);
    void ModemOff();
    void ModemPowered();
    void ModemRegistered();
    void SignalQuality(uchar SignalQuality);

    void Stopped();

private:
    using Calls = QMap<QString, CallRecord>;

    class LateReply;

    // Power and registration
    int Status() const;
    bool IsWanted() const { return wanted.value_or(false); }
    void OnModemChanged();
    void ReportDueChanges();
    void TakeNextPowerStep();
    void OnStepDone(bool success);
    void Report(int status);
    void ReportStrength();
    void OnPinged(bool alive);

    // Calls
    void OnCallChanged(const StackCall& call);
    Calls::iterator AddCall(const StackCall& call);
    void TryDial();
    void OnDialled(const QString& id);
    void FailDial();
    Calls::iterator CurrentCall();
    void HangUp(Calls::iterator call, bool all);
    void HangUpDial(bool all);
    void TryHangups();
    void TryHangup(const QString& id);
    void ReportEnd(const CallRecord& call);
    void DropCalls();
    void EndCalls();

    void OnCallGone();
    ModemStack::Done AnswerLater(int limitMs, const std::function<void()>& onTimeout = {});
    void FailLateReplies();

    std::unique_ptr<ModemStack> stack;
    bool modemKnown = false; ///< ModemAdded was emitted

    std::optional<bool> wanted;    ///< the power last requested; empty before the first request and after a loss
    bool modemOffDue = false;      ///< a power-on was accepted and no ModemOff was emitted since
    int reported;                  ///< the last ModemStatus that the service was notified of
    std::optional<bool> powerStep; ///< the direction of the step that the stack is taking
    bool changedSinceStep = false; ///< the modem has changed since the step began
    QTimer stepTimer;              ///< runs between a step and the next try
    QElapsedTimer sincePowered;
    QDeadlineTimer powerOnDelay; ///< while it runs, the modem is not powered on again

    Calls calls;
    std::optional<PendingDial> dial;
    int dialSerial = 0;
    QTimer dialTimer;   ///< limits how long the stack may take to make a call
    QTimer hangupTimer; ///< runs between a hang-up that failed and the next try

    std::optional<Apn> apn; ///< of the data connection, which is established after each registration
    QSet<LateReply*> lateReplies;
    bool stopping = false;
};
