#include "SoundManager.h"

#include "PeerCodes.h"
#include "VoiceRoute.h"

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
    if (name != QLatin1String(GsmVoiceStream))
        return AudioStatusDone;
    route.SetWanted({.call = false, .loudspeaker = route.Wanted().loudspeaker});
    route.WhenUpdated(SucceedLater());
    return AudioStatusDone;
}
