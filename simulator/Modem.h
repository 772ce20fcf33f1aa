#pragma once

#include "BusService.h"

#include <QObject>
#include <QTimer>

/// How long the device's parts take, in milliseconds.
struct DeviceTimes {
    int powerUp = 3000;
    int registration = 5000;
    int powerDown = 1500;
    int signalInterval = 30000;
    int answer = 4000; ///< until the far end answers or rejects a call
};

/// The modem with its SIM card and the network around it, behind the GSM daemon's interface.
class Modem : public QObject
{
    Q_OBJECT

public:
    /// What happens to a call to a number.
    enum FarEnd { FarEndAnswers, FarEndRejects, FarEndDoesNotAnswer, FarEndUnreachable };

    Modem(BusService& daemon, const DeviceTimes& times);

    // The world around. Each that can be refused returns an empty text, or why it is.
    void SetSim(bool inserted);
    void SetNetwork(bool found);
    void SetSilent(bool silent);
    void SetSignalQuality(uchar quality);
    void SetFarEnd(const QString& number, FarEnd behaviour);
    QString Drop();
    QString Ring(const QString& number);
    QString FarEndAnswer();
    QString FarEndReject();
    QString FarEndHangup();
    QString DeliverSms(const QString& number, const QString& text);

    QVariantMap State() const;

private:
    enum Power { Off, PoweringUp, On, Registered, PoweringDown };
    enum Call { NoCall, Dialling, Ringing, Active };

    void HandleRequests();
    void SetEnabled(bool enable);
    void SetPower(Power next);
    void OnTransition();
    void FollowNetwork();
    void ReportSignal();
    bool Dial(const QString& number);
    void ConnectCall();
    void EndCall(const char* signal);
    QVariantList CallInfo() const;
    QString WhyUnreachable() const;

    BusService& daemon;
    const DeviceTimes times;
    Power power = Off;
    Call call = NoCall;
    QString callNumber;
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
