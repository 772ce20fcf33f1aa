#include "AudioInCtl.h"

#include "Capture.h"
#include "DefaultDevice.h"

int AudioInCtl::CaptureStart(const QString& path)
{
    if (capture.IsEnabled())
        return Refuse(QStringLiteral("a capture while another is on"));
    capture.Start(path, [this, send = AnswerLater()] {
        send({int(capture.IsEnabled() ? AudioStatusDone : AudioStatusRefused)});
    });
    return AudioStatusDone;
}

int AudioInCtl::CaptureStop()
{
    capture.Stop();
    return AudioStatusDone;
}

int AudioInCtl::GetCaptureEnabled(bool& enabled)
{
    enabled = capture.IsEnabled();
    return AudioStatusDone;
}

int AudioInCtl::GetInputSource(int& inputSource)
{
    inputSource = this->inputSource;
    return AudioStatusDone;
}

int AudioInCtl::SetInputSource(int inputSource)
{
    this->inputSource = inputSource;
    return AudioStatusDone;
}

int AudioInCtl::GetMute(bool& muted)
{
    muted = source.IsMuted();
    source.Refresh([this, send = AnswerLater()] { send({int(AudioStatusDone), source.IsMuted()}); });
    return AudioStatusDone;
}

int AudioInCtl::SetMute(bool mute)
{
    source.SetMute(mute, SucceedLater());
    return AudioStatusDone;
}

int AudioInCtl::GetVol(double& volume)
{
    volume = source.Volume();
    source.Refresh([this, send = AnswerLater()] { send({int(AudioStatusDone), source.Volume()}); });
    return AudioStatusDone;
}

int AudioInCtl::SetVol(double volume)
{
    // NaN fails the comparison as well.
    if (!(volume >= 0 && volume <= 1))
        return Refuse(QStringLiteral("a volume of %1, not from 0 to 1").arg(volume));
    source.SetVolume(volume, SucceedLater());
    return AudioStatusDone;
}
