#pragma once

#include "CallAudioProxy.h"
#include "VoiceRoute.h"

#include <QDBusPendingCall>
#include <QDBusServiceWatcher>

/// The voice route of a device whose sound card itself is connected to the modem: callaudiod switches the card to voice
/// call mode, on loudspeaker or earpiece.
class CallAudioRoute : public VoiceRoute
{
    Q_OBJECT

public:
    CallAudioRoute();

protected:
    void Update() override;

private:
    void EnableSpeaker();
    void Watch(const QDBusPendingCall& call, const QString& name, void (CallAudioRoute::*next)());
    void OnOwnerChanged(const QString& service, const QString& oldOwner, const QString& newOwner);

    CallAudioProxy callAudio;
    QDBusServiceWatcher watcher;
    bool inCallMode = false; ///< callaudiod was asked for it
};
