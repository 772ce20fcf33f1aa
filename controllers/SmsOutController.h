#pragma once

#include "Sms.h"

#include <QDeadlineTimer>
#include <QList>
#include <QObject>
#include <QTimer>
#include <queue>

/// The queue of outgoing messages. It hands them to the GSM daemon one at a time, in order, while the modem is
/// registered, and reports each exactly once. It never switches the modem on, and lives in memory only.
class SmsOutController : public QObject
{
    Q_OBJECT

public:
    /// The process's instance, made at the first call; throws when the GSM service cannot be followed.
    static SmsOutController& Instance();

    /// Queues a message; the first try to send comes a second later.
    /// @return the message's identifier, counted from 1. 0, after 4294967295, reads as a failure although the message
    /// is queued.
    uint SmsSend(const QString& phoneNumber, const QString& message);

Q_SIGNALS:
    /// A message left the queue: the daemon took it, or it is lost.
    void SmsSent(Sms sms, bool sent);

private Q_SLOTS:
    void OnGsmModemRegistered();
    void ProcessSmsQueue();

private:
    SmsOutController();

    void ScheduleProcessing();
    void AwaitNextRun();
    void OnRunDue();

    quint32 lastSmsId;
    QList<Sms> smsQueue;
    std::queue<QDeadlineTimer> dueRuns; ///< when each scheduled run is due; equal delays keep them in order
    QTimer nextRun;
};
