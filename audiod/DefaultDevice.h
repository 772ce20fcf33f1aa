#pragma once

#include "PendingAnswers.h"
#include "SoundServer.h"

#include <optional>

/// Volume and mute of the sound server's default sink or source. Values that are set while there is no server
/// take effect when there is one.
class DefaultDevice : public QObject
{
    Q_OBJECT

public:
    DefaultDevice(SoundServer& server, DeviceKind kind);

    /// @param volume from 0 to 1, on the scale that sound servers show to users.
    /// @param answer is called when the value has taken effect or has to wait for the server.
    void SetVolume(double volume, const std::function<void()>& answer);
    void SetMute(bool mute, const std::function<void()>& answer);
    /// Reads both. @param answer is called when Volume() and IsMuted() are up to date, or when the server does not
    /// answer.
    void Refresh(const std::function<void()>& answer);
    double Volume() const { return volume; }
    bool IsMuted() const { return muted; }

private:
    void Work(const std::function<void()>& answer);
    void Apply();
    void OnLevel(const std::optional<SoundLevel>& level);
    void Finish(const QString& problem);

    SoundServer& server;
    const DeviceKind kind;
    double volume = 0.5;
    bool muted = false;
    std::optional<double> wantedVolume;
    std::optional<bool> wantedMute;
    bool working = false;
    bool again = false;
    PendingAnswers pendingAnswers;
};
