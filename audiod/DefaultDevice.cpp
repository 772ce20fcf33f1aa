#include "DefaultDevice.h"

#include "AudioLog.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

DefaultDevice::DefaultDevice(SoundServer& server, DeviceKind kind) : server(server), kind(kind)
{
    connect(&server, &SoundServer::Ready, this, &DefaultDevice::Apply);
    connect(&server, &SoundServer::Lost, this, [this] {
        if (!working && !pendingAnswers.IsEmpty())
            Finish(this->server.Error());
    });
    connect(&pendingAnswers, &PendingAnswers::TimedOut, this,
            [] { AUDIO_LOG(LogLevelError, "The sound server does not answer: volume and mute have to wait"); });
}

void DefaultDevice::SetVolume(double volume, const std::function<void()>& answer)
{
    this->volume = volume;
    wantedVolume = volume;
    Work(answer);
}

void DefaultDevice::SetMute(bool mute, const std::function<void()>& answer)
{
    muted = mute;
    wantedMute = mute;
    Work(answer);
}

void DefaultDevice::Refresh(const std::function<void()>& answer)
{
    Work(answer);
}

void DefaultDevice::Work(const std::function<void()>& answer)
{
    pendingAnswers.Add(answer);
    Apply();
}

void DefaultDevice::Apply()
{
    if (!server.IsReady()) {
        // Apply() is called again when it is ready.
        server.Connect();
        return;
    }
    if (working) {
        again = true;
        return;
    }
    working = true;
    again = false;
    server.GetLevel(kind, [this](const std::optional<SoundLevel>& level) { OnLevel(level); });
}

void DefaultDevice::OnLevel(const std::optional<SoundLevel>& level)
{
    if (!level) {
        Finish(server.Error());
        return;
    }

    struct Change {
        int pendingRequests = 1; ///< unanswered requests, and one more until all have been sent
        QString problem;
    };
    const auto change = std::make_shared<Change>();
    const std::optional<double> newVolume = std::exchange(wantedVolume, std::nullopt);
    const std::optional<bool> newMute = std::exchange(wantedMute, std::nullopt);
    const auto done = [this, change, newVolume, newMute](const std::optional<bool>& success) {
        if (!success)
            change->problem = server.Error();
        if (--change->pendingRequests > 0)
            return;
        // Apply a value that the server has lost to the next one, unless a newer value was set.
        if (!server.IsReady()) {
            wantedVolume = wantedVolume ? wantedVolume : newVolume;
            wantedMute = wantedMute ? wantedMute : newMute;
        }
        Finish(change->problem);
    };

    if (newVolume) {
        // Preserve the balance of the channels.
        pa_cvolume volumes = level->volume;
        pa_cvolume_scale(&volumes, static_cast<pa_volume_t>(std::lround(*newVolume * PA_VOLUME_NORM)));
        ++change->pendingRequests;
        server.SetVolume(kind, level->index, volumes, done);
    } else if (!wantedVolume) {
        volume = std::min(1.0, static_cast<double>(pa_cvolume_max(&level->volume)) / PA_VOLUME_NORM);
    }
    if (newMute) {
        ++change->pendingRequests;
        server.SetMute(kind, level->index, *newMute, done);
    } else if (!wantedMute) {
        muted = level->mute;
    }
    done(true);
}

void DefaultDevice::Finish(const QString& problem)
{
    working = false;
    if (!problem.isEmpty())
        AUDIO_LOG(LogLevelError, "Volume and mute of the default %s could not be reached: %s",
                  kind == DeviceKind::Sink ? "sink" : "source", qPrintable(problem));
    if (again && server.IsReady())
        Apply();
    else
        pendingAnswers.Release();
}
