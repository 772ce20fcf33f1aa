#pragma once

#include "PhoneCodes.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <source_location>

class GsmProxy;
class QDBusServiceWatcher;

/// The service's only client of the GSM daemon. It follows the daemon on the session bus, relays its signals and wraps
/// its commands. Used from the main thread only.
class Gsm : public QObject
{
    Q_OBJECT

public:
    /// The process's instance, made at the first call. If the daemon is already on the bus it is attached at once,
    /// before anybody can have connected to Ready().
    static Gsm& Instance();
    ~Gsm() override;

    /// True when the daemon's presence can be followed.
    bool IsValid() const { return valid; }
    /// True while the daemon is attached.
    bool IsReady() const { return ready; }
    /// Stores the last reported ModemStatus, which outlives the daemon. Always true.
    bool GetModemStatus(int& status) const;
    /// Stores the last reported signal quality, in the daemon's unit. Always true.
    bool GetSignalQuality(unsigned int& quality) const;

    // Commands to the daemon. Each blocks until the answer or its timeout, and is true only when the daemon answered in
    // time, without error, with the status of success. Without a daemon they fail at once. Nothing is retried.

    bool PingRegistration();
    /// @param present to be used only when the command succeeded.
    bool IsSimPresent(bool& present);
    bool Answer();
    bool HangupAll();
    bool Hangup();
    bool SetGprsApn(const QString& apn, const QString& username, const QString& password);
    bool Call(const QString& number);
    bool SendSms(const QString& recipient, const QString& text);
    bool SetEnabled(bool enable);

Q_SIGNALS:
    void Ready();
    void Failed();
    void CallAnswered(QVariantMap CallInfo);
    void CallIncoming(QVariantMap CallInfo);
    void CallTerminated();
    void CallRejected();
    void MessageReceived(QString Text, QVariantMap Info);
    void ModemOff();
    void ModemOn();
    void ModemRegistered();
    void SignalQuality(uint quality);

private Q_SLOTS:
    void OnGsmdRegistered(QString objectPath = QString());
    void OnGsmdUnregistered(QString objectPath = QString());
    void OnGsmModemPowered();
    void OnGsmModemRegistered();
    void OnGsmModemOff();
    void OnGsmSignalQuality(uchar quality);
    void OnGsmCallIncoming(QVariantMap CallInfo);
    void OnGsmCallAnswered(QVariantMap CallInfo);
    void OnGsmCallTerminated(QVariantMap CallInfo);
    void OnGsmCallRejected(QVariantMap CallInfo);
    void OnGsmSmsRecevice(QString Text, QVariantMap Info);

private:
    Gsm();

    void InstanceGsmProxy();
    void DestroyGsmProxy();

    /// One command: checks that the daemon is there, issues the call, waits, traces and logs the outcome.
    /// @param method the remote method, for the trace.
    /// @param request the call with its arguments, for the outcome line.
    /// @param issue makes the call and returns its reply, pending or not.
    /// @param where the command that the lines belong to.
    template <typename Issue>
    bool Command(const char* method, const QByteArray& request, int timeoutMs, Issue issue,
                 const std::source_location& where = std::source_location::current());

    bool valid;
    bool ready;
    int modemStatus;
    unsigned int signalQuality;
    QDBusServiceWatcher* gsmdWatcher;
    GsmProxy* gsmProxy;
};
