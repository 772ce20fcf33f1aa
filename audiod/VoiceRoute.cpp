#include "VoiceRoute.h"

#include "AudioLog.h"

namespace
{

constexpr int RetryMs = 1000;

}

VoiceRoute::VoiceRoute()
{
    retry.setSingleShot(true);
    retry.setInterval(RetryMs);
    connect(&retry, &QTimer::timeout, this, &VoiceRoute::Apply);
    connect(&pendingAnswers, &PendingAnswers::TimedOut, this, [this] { Report(QStringLiteral("no answer in time")); });
}

void VoiceRoute::Want(const VoiceWish& wish)
{
    // Log a problem anew for each call.
    if (wish.call != this->wish.call)
        reported.clear();
    this->wish = wish;
    settled = false;
    Apply();
}

void VoiceRoute::Apply()
{
    if (working) {
        again = true;
        return;
    }
    working = true;
    again = false;
    retry.stop();
    Work();
}

void VoiceRoute::WhenSettled(const std::function<void()>& answer)
{
    if (settled)
        answer();
    else
        pendingAnswers.Add(answer);
}

void VoiceRoute::Settle(const QString& problem)
{
    working = false;
    if (again) {
        Apply();
        return;
    }
    settled = true;
    if (problem.isEmpty()) {
        reported.clear();
    } else {
        Report(problem);
        if (wish.call)
            retry.start();
    }
    pendingAnswers.Release();
}

void VoiceRoute::Report(const QString& problem)
{
    // Log a repeated problem only once.
    if (problem == reported)
        return;
    reported = problem;
    AUDIO_LOG(LogLevelError, "The call's voice could not be %s: %s", wish.call ? "routed" : "returned",
              qPrintable(problem));
}
