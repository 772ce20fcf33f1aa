#pragma once

#include "AudioService.h"

class Capture;
class DefaultDevice;

/// The audio input control: volume and mute of the default source, and recording from it. The input source is only
/// stored.
class AudioInCtl : public AudioService
{
    Q_OBJECT

public:
    AudioInCtl(DefaultDevice& source, Capture& capture) : source(source), capture(capture) {}

    /// Records into a WAV file. @param path absolute; an existing file is replaced.
    int CaptureStart(const QString& path);
    int CaptureStop();
    int GetCaptureEnabled(bool& enabled);
    int GetInputSource(int& inputSource);
    int GetMute(bool& muted);
    /// @param volume from 0 to 1.
    int GetVol(double& volume);
    int SetInputSource(int inputSource);
    int SetMute(bool mute);
    int SetVol(double volume);

private:
    DefaultDevice& source;
    Capture& capture;
    int inputSource = 1;
};
