#pragma once

#include "AudioService.h"

class VoiceRoute;

/// The sound manager: starts and stops a call's voice, and stores the mask of the default amplifiers.
class SoundManager : public AudioService
{
    Q_OBJECT

public:
    explicit SoundManager(VoiceRoute& route) : route(route) {}

    int GetAmplifiersDefault(uchar& mask);
    int SetAmplifiersDefault(uchar mask);
    /// Starts the call's voice. Succeeds even if it could not be routed, since the call has already been placed.
    int PlayGsmVoice();
    /// Stops the stream of that name. The only one is "gsmvoice", the call's voice.
    int StopPlay(const QString& name, const QString& device);

private:
    VoiceRoute& route;
    uchar amplifiers = 1;
};
