#pragma once

#include "Stack.h"

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

/// A call of the stack's, as far as the contract goes.
struct CallRecord {
    StackCall::State state = StackCall::StateDialling;
    QString number;
    bool outgoing = false;
    bool answered = false;
    bool refused = false;    ///< nobody was told of it, and nobody will be
    bool hangingUp = false;  ///< tried until the call has ended
    bool requested = false;  ///< the stack is hanging up
    bool terminated = false; ///< by a request to end all calls
};

/// A request to dial that the stack has not made a call of yet.
struct PendingDial {
    CallRecord call;
    bool issued = false; ///< to the stack; until then it waits for the end of calls that are being hung up
};

/// The GSM daemon's contract on a modem stack: what is promised to the phone service, whatever the stack. Methods
/// return the contract's status, 0 for success; those that take time answer later.
class GsmDaemon : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    GsmDaemon();
    ~GsmDaemon() override;

    /// Serves on this stack from now on.
    void Attach(std::unique_ptr<Stack> stack);
    /// The stack is gone, and with it the modem.
    void Detach();
    /// Hangs up what is left and emits Stopped() then, or when the stack takes too long.
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
    void Settle();
    void SettlePower();
    void OnStepDone(bool success);
    void Report(int status);
    void ReportStrength();
    void OnPinged(bool alive);

    // Calls
    void OnCallChanged(const StackCall& call);
    Calls::iterator Meet(const StackCall& call);
    void TryDial();
    void OnDialled(const QString& id);
    void EndDial();
    Calls::iterator CallInHand();
    void HangUp(Calls::iterator call, bool all);
    void HangUpDial(bool all);
    void TryHangups();
    void TryHangup(const QString& id);
    void ReportEnd(const CallRecord& call);
    void DropCalls();

    void OnCallGone();
    Stack::Done AnswerLater(int limitMs);
    void FailLateReplies();

    std::unique_ptr<Stack> stack;
    bool modemKnown = false; ///< ModemAdded was told

    std::optional<bool> wanted; ///< what was asked for last; nothing before the first request and after a loss
    bool owesOff = false;       ///< a power-on was accepted and no ModemOff reported since
    int reported;               ///< ModemStatus that the service knows of
    std::optional<bool> step;   ///< towards on or off, which the stack is taking
    bool progressed = false;    ///< the modem has changed since the step began
    QTimer stepTimer;           ///< runs between a step and the next try
    QElapsedTimer sincePowered;
    QDeadlineTimer quiet; ///< until then the modem is not powered on again

    Calls calls;
    std::optional<PendingDial> dial;
    int dialSerial = 0;
    QTimer dialTimer;   ///< limits how long the stack may take to make a call
    QTimer hangupTimer; ///< runs between a hang-up that failed and the next try

    std::optional<Apn> apn; ///< of the link, to be brought up after each registration
    QSet<LateReply*> lateReplies;
    bool stopping = false;
};
