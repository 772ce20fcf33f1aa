#include "SmsOutController.h"

#include "Gsm.h"
#include "Log.h"
#include "QtCompat.h"

// Readers of the log look for the queue's lines under the sound manager's path.
#define LOG_SMS(level, ...) LOG_FROM(Names::SoundManagerObject, level, __VA_ARGS__)

namespace
{

constexpr int ProcessingDelayMs = 1000;

}

SmsOutController& SmsOutController::Instance()
{
    static SmsOutController instance;
    return instance;
}

SmsOutController::SmsOutController() : lastSmsId(0)
{
    Gsm& gsm = Gsm::Instance();
    if (!gsm.IsValid() || !connect(&gsm, SIGNAL(ModemRegistered()), SLOT(OnGsmModemRegistered()))) {
        LOG_SMS(LogLevelError, "FATAL: error connecting Gsm service");
        throw QtConcurrent::Exception();
    }
    nextRun.setSingleShot(true);
    nextRun.setTimerType(Qt::PreciseTimer);
    connect(&nextRun, &QTimer::timeout, this, &SmsOutController::OnRunDue);
    LOG_SMS(LogLevelProgress, "Gsm service connected");
}

uint SmsOutController::SmsSend(const QString& phoneNumber, const QString& message)
{
    ++lastSmsId;
    smsQueue.append(Sms(lastSmsId, phoneNumber, message));
    ScheduleProcessing();
    return lastSmsId;
}

// Each run blocks for as long as the daemon takes to send. Timers that are due at the same time fire one after the
// other before the event loop takes anything else, so that with a timer for each run an emergency call would wait for a
// whole burst of messages. A single timer, started again after each run, lets the loop take calls, signals and the
// request to stop in between.

void SmsOutController::ScheduleProcessing()
{
    dueRuns.emplace(ProcessingDelayMs, Qt::PreciseTimer);
    AwaitNextRun();
}

void SmsOutController::AwaitNextRun()
{
    if (!dueRuns.empty() && !nextRun.isActive())
        nextRun.start(static_cast<int>(dueRuns.front().remainingTime()));
}

void SmsOutController::OnRunDue()
{
    dueRuns.pop();
    ProcessSmsQueue();
    AwaitNextRun();
}

void SmsOutController::ProcessSmsQueue()
{
    LOG_SMS(LogLevelProgress, "Process sms queue: %d messages present", static_cast<int>(smsQueue.size()));
    if (smsQueue.isEmpty())
        return;

    int modemStatus = ModemStatusOff;
    if (!Gsm::Instance().GetModemStatus(modemStatus)) {
        LOG_SMS(LogLevelWarning, "Can't obtain gsm status");
        return;
    }

    switch (modemStatus) {
    case ModemStatusRegistered: {
        // Out of the queue before it is sent: a message whose sending fails is dropped, never sent twice.
        const Sms sms = smsQueue.takeFirst();
        Q_EMIT SmsSent(sms, Gsm::Instance().SendSms(sms.phoneNumber, sms.message));
        if (!smsQueue.isEmpty())
            ScheduleProcessing();
        break;
    }
    case ModemStatusOn:
        LOG_SMS(LogLevelRequest, "Gsm is ON: sms queue will be processed when gsm becomes REGISTERED");
        break;
    default: LOG_SMS(LogLevelWarning, "Unexpected: the Gsm is OFF (please dig for bug)"); break;
    }
}

void SmsOutController::OnGsmModemRegistered()
{
    if (!smsQueue.isEmpty())
        ProcessSmsQueue();
}
