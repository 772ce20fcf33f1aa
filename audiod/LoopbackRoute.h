#pragma once

#include "SoundServer.h"
#include "VoiceRoute.h"

#include <QTimer>

/// One of a call's two ways.
struct VoiceLink {
    QString source;
    QString sink;
};

/// The voice route of a modem that is a sound card of its own: two loopbacks on the sound server, from the modem to the
/// default sink and from the default source to the modem. They follow the defaults during the call. Those that an
/// earlier life of this program left behind are removed.
class LoopbackRoute : public VoiceRoute
{
    Q_OBJECT

public:
    /// @param modemSource,modemSink names of the modem's devices on the server.
    LoopbackRoute(SoundServer& server, const QString& modemSource, const QString& modemSink);

protected:
    void Work() override;

private:
    QList<VoiceLink> Wanted(const SoundSetup& setup);
    QString Speaker(const SoundSetup& setup) const;
    QString Microphone(const SoundSetup& setup, const QString& speaker) const;
    void OnSetup(const std::optional<SoundSetup>& setup);

    SoundServer& server;
    const QString modemSource;
    const QString modemSink;

    int open = 0; ///< requests that change something and are not answered yet
    QString problem;
    QTimer changed;
};
