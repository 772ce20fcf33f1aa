#pragma once

#include <QDBusContext>
#include <QObject>
#include <QVariantList>

#include <functional>

/// Status of every method's answer.
enum AudioStatus : int {
    AudioStatusDone = 0,
    AudioStatusRefused = -1, ///< a value out of range, or a recording that cannot be made
};

/// Base of the objects behind the three contracts.
class AudioService : public QObject, protected QDBusContext
{
    Q_OBJECT

protected:
    using Sender = std::function<void(const QVariantList&)>;

    /// Has the running method answer later; what it returns does not count.
    /// @return sends the answer, the status and what else the method delivers. To be called once.
    Sender AnswerLater();
    /// The same for an answer of nothing but the status of success.
    std::function<void()> SucceedLater();
    /// Logs why a request is refused. @return the status for it.
    static int Refuse(const QString& reason);
};
