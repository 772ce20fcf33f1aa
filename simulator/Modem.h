#pragma once

#include <QList>
#include <QMap>
#include <QObject>
#include <QTimer>
#include <QVariantMap>

/// How long the device's parts take, in milliseconds.
struct DeviceTimes {
    int powerUp = 3000;
    int registration = 5000;
    int powerDown = 1500;
    int signalInterval = 30000;
    int answer = 4000; ///< until the far end answers or rejects a call
};

/// A call, from the modem's side.
struct Call {
    enum State { Dialling, Ringing, Waiting, Active };

    int id = 0; ///< from 1, as in 3GPP TS 22.030
    bool outgoing = false;
    bool answered = false;
    State state = Dialling;
    QString number; ///< empty when it is withheld
};

/// The modem with its SIM card and the network around it. It knows nothing of how it is reached: a front end asks it,
/// and relays what it reports.
class Modem : public QObject
{
    Q_OBJECT

public:
    enum Power { Off, PoweringUp, On, Registered, PoweringDown };
    /// What happens to a call to a number.
    enum FarEnd { FarEndAnswers, FarEndRejects, FarEndDoesNotAnswer, FarEndUnreachable };
    /// Why a call ended.
    enum End { EndHangup, EndHangupAll, EndFarEnd, EndRejected, EndNetworkLost, EndPowerLost };

    explicit Modem(const DeviceTimes& times);

    // The world around. Each that can be refused returns an empty text, or why it is.
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

    // For the front ends. A request that can be refused returns whether it was done.
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
    /// Answers the call that rings.
    bool Answer();
    /// Lets a second caller wait while there is a call; without, the line is busy.
    void SetCallWaiting(bool allowed) { callWaiting = allowed; }
    bool Hangup(int id);
    /// Ends the call that there is, and takes the one that waits if one does.
    bool TakeWaiting();
    bool HangupAll(End why);
    bool SendSms();

Q_SIGNALS:
    void PowerChanged(Modem::Power power);
    /// The modem has lost its power by itself, or was unplugged.
    void PowerLost();
    void PluggedChanged(bool plugged);
    void SimChanged(bool inserted);
    void SignalMeasured(uchar quality);
    /// A call came in: it rings, or waits.
    void CallCame(const Call& call);
    void CallAnswered(const Call& call);
    void CallEnded(const Call& call, Modem::End why);
    void MessageCame(const QString& number, const QString& text);

private:
    void SetPower(Power next);
    void OnTransition();
    void FollowNetwork();
    void ReportSignal();
    Call* FindCall(Call::State state);
    void AddCall(Call::State state, const QString& number);
    void Connect(Call& call);
    void EndCall(int id, End why);
    void RingWaiting();

    const DeviceTimes times;
    Power power = Off;
    QList<Call> calls; ///< at most two, of which one waits
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
