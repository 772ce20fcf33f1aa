#include "SmsOutController.h"

#include "Gsm.h"
#include "Log.h"
#include "QtCompat.h"

// Readers of the log expect the queue's lines under the sound manager's path.
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

// Each run blocks until the daemon has sent its message. If each run had its own timer, those due at the same time
// would fire in a row before the event loop handles anything else, and an emergency call would wait for a whole burst
// of messages. A single timer, restarted after each run, lets the loop handle calls, signals and the request to stop in
// between.

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
        // Remove the message before sending it: one that fails is dropped, and none is ever sent twice.
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
