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
    connect(&retry, &QTimer::timeout, this, &VoiceRoute::StartUpdate);
    connect(&pendingAnswers, &PendingAnswers::TimedOut, this, [this] { Report(QStringLiteral("no answer in time")); });
}

void VoiceRoute::SetWanted(const VoiceSetup& wanted)
{
    // Log a problem anew for each call.
    if (wanted.call != this->wanted.call)
        reported.clear();
    this->wanted = wanted;
    updated = false;
    StartUpdate();
}

void VoiceRoute::StartUpdate()
{
    if (updating) {
        again = true;
        return;
    }
    updating = true;
    again = false;
    retry.stop();
    Update();
}

void VoiceRoute::WhenUpdated(const std::function<void()>& answer)
{
    if (updated)
        answer();
    else
        pendingAnswers.Add(answer);
}

void VoiceRoute::FinishUpdate(const QString& problem)
{
    updating = false;
    if (again) {
        StartUpdate();
        return;
    }
    updated = true;
    if (problem.isEmpty()) {
        reported.clear();
    } else {
        Report(problem);
        if (wanted.call)
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
    AUDIO_LOG(LogLevelError, "The call's voice could not be %s: %s", wanted.call ? "routed" : "unrouted",
              qPrintable(problem));
}
