#include "AudioService.h"

#include "AudioLog.h"

#include <QDBusConnection>
#include <QDBusMessage>

AudioService::Sender AudioService::AnswerLater()
{
    setDelayedReply(true);
    return [bus = connection(), request = message()](const QVariantList& values) {
        if (request.isReplyRequired())
            bus.send(request.createReply(values));
    };
}

std::function<void()> AudioService::SucceedLater()
{
    return [send = AnswerLater()] { send({int(AudioStatusDone)}); };
}

int AudioService::Refuse(const QString& reason)
{
    AUDIO_LOG(LogLevelWarning, "Refused: %s", qPrintable(reason));
    return AudioStatusRefused;
}
