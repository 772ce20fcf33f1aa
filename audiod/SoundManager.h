#pragma once

#include "AudioService.h"

class VoiceRoute;

/// The sound manager: starts and stops a call's voice, and keeps the mask of the default amplifiers.
class SoundManager : public AudioService
{
    Q_OBJECT

public:
    explicit SoundManager(VoiceRoute& route) : route(route) {}

    int GetAmplifiersDefault(uchar& mask);
    int SetAmplifiersDefault(uchar mask);
    /// Starts the call's voice. Succeeds also if it could not be routed: the call is placed already.
    int PlayGsmVoice();
    /// Stops the stream of that name: "gsmvoice" is the call's voice, there is no other.
    int StopPlay(const QString& name, const QString& device);

private:
    VoiceRoute& route;
    uchar amplifiers = 1;
};
