#include "CallAudioRoute.h"

#include "AudioLog.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace
{

constexpr char Service[] = "org.mobian_project.CallAudio";
constexpr char Object[] = "/org/mobian_project/CallAudio";

enum AudioMode : uint { AudioModeDefault = 0, AudioModeVoiceCall = 1 };

constexpr int AnswerMs = 5000;

}

CallAudioRoute::CallAudioRoute()
    : callAudio(Service, Object, QDBusConnection::sessionBus()),
      watcher(Service, QDBusConnection::sessionBus(), QDBusServiceWatcher::WatchForOwnerChange)
{
    callAudio.setTimeout(AnswerMs);
    connect(&watcher, &QDBusServiceWatcher::serviceOwnerChanged, this, &CallAudioRoute::OnOwnerChanged);

    // An earlier life of this program may have left it in the voice call mode.
    inCallMode = QDBusConnection::sessionBus().interface()->isServiceRegistered(QLatin1String(Service));
    Apply();
}

void CallAudioRoute::OnOwnerChanged()
{
    // It starts in the default mode.
    inCallMode = false;
    if (Wish().call)
        Apply();
}

void CallAudioRoute::Work()
{
    // It is not started only to be sent back to its default mode.
    if (!Wish().call && !inCallMode) {
        Settle(QString());
        return;
    }
    inCallMode = Wish().call;
    Watch(callAudio.SelectMode(inCallMode ? AudioModeVoiceCall : AudioModeDefault), QStringLiteral("SelectMode"),
          inCallMode ? &CallAudioRoute::EnableSpeaker : nullptr);
}

void CallAudioRoute::EnableSpeaker()
{
    Watch(callAudio.EnableSpeaker(Wish().loudspeaker), QStringLiteral("EnableSpeaker"), nullptr);
}

/// @param next what follows on success; null is the end.
void CallAudioRoute::Watch(const QDBusPendingCall& call, const QString& name, void (CallAudioRoute::*next)())
{
    auto* answer = new QDBusPendingCallWatcher(call, this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [=, this] {
        answer->deleteLater();
        const QDBusPendingReply<bool> reply = *answer;
        // A callaudiod that is not there has nothing to return from.
        if (reply.error().type() == QDBusError::ServiceUnknown)
            inCallMode = false;
        if (reply.isError())
            Settle(QStringLiteral("callaudiod's %1: %2").arg(name, reply.error().message()));
        else if (!reply.value())
            Settle(QStringLiteral("callaudiod refused %1").arg(name));
        else if (next && !IsOutdated())
            (this->*next)();
        else
            Settle(QString());
    });
}
