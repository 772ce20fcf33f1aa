#pragma once

#include "SoundServer.h"
#include "VoiceRoute.h"

#include <QTimer>

/// One of a call's two directions.
struct VoiceLink {
    QString source;
    QString sink;
};

/// The voice route of a modem that is a sound card of its own: two loopbacks on the sound server, from the modem to the
/// default sink and from the default source to the modem. They follow the default devices during the call. Loopbacks
/// that an earlier process of this program left behind are removed.
class LoopbackRoute : public VoiceRoute
{
    Q_OBJECT

public:
    /// @param modemSource,modemSink the names of the modem's devices on the server.
    LoopbackRoute(SoundServer& server, const QString& modemSource, const QString& modemSink);

protected:
    void Update() override;

private:
    QList<VoiceLink> WantedLinks(const SoundSetup& setup);
    QString Speaker(const SoundSetup& setup) const;
    QString Microphone(const SoundSetup& setup, const QString& speaker) const;
    void OnSetup(const std::optional<SoundSetup>& setup);

    SoundServer& server;
    const QString modemSource;
    const QString modemSink;

    int pendingRequests = 0; ///< changing requests that are not answered yet
    QString problem;
    QTimer changed;
};
