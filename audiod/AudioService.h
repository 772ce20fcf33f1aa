#pragma once

#include "PeerCodes.h"

#include <QDBusContext>
#include <QObject>
#include <QVariantList>

#include <functional>

/// The status that each method answers.
enum AudioStatus : int {
    AudioStatusDone = PeerStatusSuccess,
    AudioStatusRefused = -1, ///< a value out of range, or a recording that cannot be made
};

/// Base of the objects behind the three contracts.
class AudioService : public QObject, protected QDBusContext
{
    Q_OBJECT

protected:
    using Sender = std::function<void(const QVariantList&)>;

    /// Delays the answer of the running method, whose return value is then ignored.
    /// @return a function that sends the status and the method's other values. Must be called once.
    Sender AnswerLater();
    /// The same for a method that answers only the status, which is success.
    std::function<void()> SucceedLater();
    /// Logs why a request is refused. @return the status of a refusal.
    static int Refuse(const QString& reason);
};
