#pragma once

#include "AudioService.h"

class DefaultDevice;
class VoiceRoute;

/// The audio output control: volume and mute of the default sink. Masks and the output type are only stored, but output
/// type 2 puts a call on the loudspeaker.
class AudioOutCtl : public AudioService
{
    Q_OBJECT

public:
    AudioOutCtl(DefaultDevice& sink, VoiceRoute& route) : sink(sink), route(route) {}

    /// Does nothing: the output type takes effect when it is set.
    int ApplyOutputType() { return AudioStatusDone; }
    int GetInputOutputRouting(uchar& mask);
    int GetOutputMask(uchar& mask);
    int GetOutputType(uint& type);
    int SetInputOutputRouting(uchar mask);
    int SetLineMute(bool mute);
    int SetOutputMask(uchar mask);
    int SetOutputType(uint type);
    /// @param volume in percent.
    int SetPcmVolume(uint volume);

private:
    DefaultDevice& sink;
    VoiceRoute& route;
    uchar routing = 0;
    uchar outputMask = 1;
    uint outputType = 1;
};
