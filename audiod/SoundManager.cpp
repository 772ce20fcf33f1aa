#include "SoundManager.h"

#include "VoiceRoute.h"

namespace
{

constexpr char GsmVoice[] = "gsmvoice";

}

int SoundManager::GetAmplifiersDefault(uchar& mask)
{
    mask = amplifiers;
    return AudioStatusDone;
}

int SoundManager::SetAmplifiersDefault(uchar mask)
{
    amplifiers = mask;
    return AudioStatusDone;
}

int SoundManager::PlayGsmVoice()
{
    route.SetWanted({.call = true, .loudspeaker = route.Wanted().loudspeaker});
    route.WhenUpdated(SucceedLater());
    return AudioStatusDone;
}

int SoundManager::StopPlay(const QString& name, const QString&)
{
    if (name != QLatin1String(GsmVoice))
        return AudioStatusDone;
    route.SetWanted({.call = false, .loudspeaker = route.Wanted().loudspeaker});
    route.WhenUpdated(SucceedLater());
    return AudioStatusDone;
}
