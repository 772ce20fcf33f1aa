#pragma once

#include <QList>
#include <QMap>
#include <QObject>
#include <QTimer>
#include <QVariantMap>

/// Delays of the device, in milliseconds.
struct DeviceTimes {
    int powerUp = 3000;         ///< from power-on to powered
    int registration = 5000;    ///< from powered to registered
    int powerDown = 1500;       ///< from power-off to off
    int signalInterval = 30000; ///< between signal reports
    int answer = 4000;          ///< until the far end answers or rejects a call
};

/// A call as the modem sees it.
struct Call {
    enum State { Dialling, Ringing, Waiting, Active };

    int id = 0; ///< from 1, as in 3GPP TS 22.030
    bool outgoing = false;
    bool answered = false;
    State state = Dialling;
    QString number; ///< empty if withheld
};

/// The modem with its SIM card and the network around it. It is independent of its front ends, which call its methods
/// and relay its signals.
class Modem : public QObject
{
    Q_OBJECT

public:
    enum Power { Off, PoweringUp, On, Registered, PoweringDown };
    /// How the far end of a call to a number behaves.
    enum FarEnd { FarEndAnswers, FarEndRejects, FarEndDoesNotAnswer, FarEndUnreachable };
    /// Why a call ended.
    enum End { EndHangup, EndHangupAll, EndFarEnd, EndRejected, EndNetworkLost, EndPowerLost };

    explicit Modem(const DeviceTimes& times);

    // The world around the modem. Those that can be refused return the reason, or an empty text.
    void SetSim(bool inserted);
    void SetNetwork(bool found);
    void SetSilent(bool silent);
    void SetSignalQuality(uchar quality);
    void SetFarEnd(const QString& number, FarEnd behaviour);
    QString Drop();
    QString SetPlugged(bool plugged);
    QString Ring(const QString& number);
    QString FarEndAnswer();
    QString FarEndReject();
    QString FarEndHangup();
    QString DeliverSms(const QString& number, const QString& text);

    QVariantMap State() const;

    // For the front ends. Requests that can be refused return whether they were carried out.
    Power PowerState() const { return power; }
    bool IsSilent() const { return silent; }
    bool IsPlugged() const { return plugged; }
    bool IsSimInserted() const { return simInserted; }
    uchar SignalStrength() const { return signalQuality; }
    const QList<Call>& Calls() const { return calls; }
    bool SetEnabled(bool enable);
    const QString& Apn() const { return apn; }
    bool SetApn(const QString& name);
    bool Dial(const QString& number);
    /// Answers the ringing call.
    bool Answer();
    /// Lets a second caller wait during a call instead of finding the line busy.
    void SetCallWaiting(bool allowed) { callWaiting = allowed; }
    bool Hangup(int id);
    /// Ends the active call, and answers the waiting one if there is one.
    bool SwitchToWaiting();
    bool HangupAll(End why);
    bool SendSms();

Q_SIGNALS:
    void PowerChanged(Modem::Power power);
    /// The modem has lost its power by itself.
    void PowerLost();
    void PluggedChanged(bool plugged);
    void SimChanged(bool inserted);
    void SignalMeasured(uchar quality);
    /// A call rings or waits.
    void CallReceived(const Call& call);
    void CallAnswered(const Call& call);
    void CallEnded(const Call& call, Modem::End why);
    void MessageReceived(const QString& number, const QString& text);

private:
    void SetPower(Power next);
    void OnTransition();
    void UpdateRegistration();
    void ReportSignal();
    Call* FindCall(Call::State state);
    void AddCall(Call::State state, const QString& number);
    void Connect(Call& call);
    void EndCall(int id, End why);
    void RingWaitingCall();

    const DeviceTimes times;
    Power power = Off;
    QList<Call> calls; ///< at most two, of which the second waits
    bool callWaiting = false;
    bool plugged = true;
    bool simInserted = true;
    bool networkFound = true;
    bool silent = false;
    uchar signalQuality = 71;
    QMap<QString, FarEnd> farEnds;
    QString apn;
    int smsSent = 0;
    QTimer transition;
    QTimer signalTimer;
    QTimer farEndTimer;
};
