#pragma once

#include "PhoneCodes.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <source_location>

class GsmProxy;
class QDBusServiceWatcher;

/// The service's only client of the GSM daemon. It watches the session bus for the daemon, relays its signals and wraps
/// its methods. Main thread only.
class Gsm : public QObject
{
    Q_OBJECT

public:
    /// The only instance, created by the first call. If the daemon is on the bus by then, this attaches it before
    /// anybody can connect to Ready(): check IsReady().
    static Gsm& Instance();
    ~Gsm() override;

    /// True if the bus can be watched for the daemon.
    bool IsValid() const { return valid; }
    /// True while the daemon is attached.
    bool IsReady() const { return ready; }
    /// Yields the last reported ModemStatus, also when the daemon has left. Always returns true.
    bool GetModemStatus(int& status) const;
    /// Yields the last reported signal quality, in the daemon's unit. Always returns true.
    bool GetSignalQuality(unsigned int& quality) const;

    // Commands to the daemon. Each blocks until the answer or its timeout, and returns true only if the daemon answered
    // in time, without an error and with the status 0. Without a daemon it fails at once. Nothing is retried.

    bool PingRegistration();
    /// @param present valid only if the command succeeded.
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

    /// Runs one command: checks that the daemon is attached, makes the call, waits for the answer, traces it and logs
    /// the outcome.
    /// @param method the remote method, for the trace.
    /// @param request the call with its arguments, for the outcome line.
    /// @param issue makes the call and returns its reply, pending or not.
    /// @param where the place that the log lines name.
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
