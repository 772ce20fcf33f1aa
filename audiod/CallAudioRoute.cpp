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

    // An earlier process of this program may have left callaudiod in voice call mode.
    inCallMode = QDBusConnection::sessionBus().interface()->isServiceRegistered(QLatin1String(Service));
    StartUpdate();
}

void CallAudioRoute::OnOwnerChanged(const QString&, const QString&, const QString& newOwner)
{
    // callaudiod starts in the default mode. If it was started by a pending SelectMode, that request still follows.
    if (newOwner.isEmpty())
        inCallMode = false;
    if (Wanted().call)
        StartUpdate();
}

void CallAudioRoute::Update()
{
    // Do not start callaudiod only to select its default mode.
    if (!Wanted().call && !inCallMode) {
        FinishUpdate(QString());
        return;
    }
    inCallMode = Wanted().call;
    Watch(callAudio.SelectMode(inCallMode ? AudioModeVoiceCall : AudioModeDefault), QStringLiteral("SelectMode"),
          inCallMode ? &CallAudioRoute::EnableSpeaker : nullptr);
}

void CallAudioRoute::EnableSpeaker()
{
    Watch(callAudio.EnableSpeaker(Wanted().loudspeaker), QStringLiteral("EnableSpeaker"), nullptr);
}

/// @param next is called on success; null if there is nothing more to do.
void CallAudioRoute::Watch(const QDBusPendingCall& call, const QString& name, void (CallAudioRoute::*next)())
{
    auto* answer = new QDBusPendingCallWatcher(call, this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [=, this] {
        answer->deleteLater();
        const QDBusPendingReply<bool> reply = *answer;
        // Without callaudiod there is no mode to leave.
        if (reply.error().type() == QDBusError::ServiceUnknown)
            inCallMode = false;
        if (reply.isError())
            FinishUpdate(QStringLiteral("callaudiod's %1: %2").arg(name, reply.error().message()));
        else if (!reply.value())
            FinishUpdate(QStringLiteral("callaudiod refused %1").arg(name));
        else if (next && !IsOutdated())
            (this->*next)();
        else
            FinishUpdate(QString());
    });
}
