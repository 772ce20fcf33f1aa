#pragma once

#include "Sms.h"

#include <QDeadlineTimer>
#include <QList>
#include <QObject>
#include <QTimer>
#include <queue>

/// The queue of outgoing messages. It passes them to the GSM daemon one at a time, in order, while the modem is
/// registered, and reports each exactly once. It never switches the modem on. It is not stored: a restart loses it.
class SmsOutController : public QObject
{
    Q_OBJECT

public:
    /// The only instance, created by the first call. Throws if Gsm is not valid.
    static SmsOutController& Instance();

    /// Queues a message. The queue runs one second later.
    /// @return the message's identifier, counted from 1. After 4294967295 it is 0, which reads as a failure although
    /// the message is queued.
    uint SmsSend(const QString& phoneNumber, const QString& message);

Q_SIGNALS:
    /// A message has left the queue.
    /// @param sent false if the daemon did not accept the message, which is then lost.
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
    std::queue<QDeadlineTimer> dueRuns; ///< due times of the scheduled runs, in order since all delays are equal
    QTimer nextRun;
};
