#include "AudioOutCtl.h"

#include "DefaultDevice.h"
#include "PeerCodes.h"
#include "VoiceRoute.h"

namespace
{

constexpr uint FullVolume = 100;

}

int AudioOutCtl::GetInputOutputRouting(uchar& mask)
{
    mask = routing;
    return AudioStatusDone;
}

int AudioOutCtl::SetInputOutputRouting(uchar mask)
{
    routing = mask;
    return AudioStatusDone;
}

int AudioOutCtl::GetOutputMask(uchar& mask)
{
    mask = outputMask;
    return AudioStatusDone;
}

int AudioOutCtl::SetOutputMask(uchar mask)
{
    outputMask = mask;
    return AudioStatusDone;
}

int AudioOutCtl::GetOutputType(uint& type)
{
    type = outputType;
    return AudioStatusDone;
}

int AudioOutCtl::SetOutputType(uint type)
{
    outputType = type;
    const bool loudspeaker = type == OutputTypeCall;
    if (loudspeaker != route.Wanted().loudspeaker) {
        route.SetWanted({.call = route.Wanted().call, .loudspeaker = loudspeaker});
        route.WhenUpdated(SucceedLater());
    }
    return AudioStatusDone;
}

int AudioOutCtl::SetLineMute(bool mute)
{
    sink.SetMute(mute, SucceedLater());
    return AudioStatusDone;
}

int AudioOutCtl::SetPcmVolume(uint volume)
{
    if (volume > FullVolume)
        return Refuse(QStringLiteral("a volume of %1 %").arg(volume));
    sink.SetVolume(static_cast<double>(volume) / FullVolume, SucceedLater());
    return AudioStatusDone;
}
