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
    route.Want({.call = true, .loudspeaker = route.Wish().loudspeaker});
    route.WhenSettled(SucceedLater());
    return AudioStatusDone;
}

int SoundManager::StopPlay(const QString& name, const QString&)
{
    if (name != QLatin1String(GsmVoice))
        return AudioStatusDone;
    route.Want({.call = false, .loudspeaker = route.Wish().loudspeaker});
    route.WhenSettled(SucceedLater());
    return AudioStatusDone;
}
