#pragma once

#include "PendingAnswers.h"

#include <QString>

/// The wanted state of a call's voice route.
struct VoiceWish {
    bool call = false;
    bool loudspeaker = false; ///< rather than the earpiece, where the device has both
};

/// The route of a call's voice between modem and user. A new wish may be set at any time, and the route works towards
/// the latest. Failures are logged, and retried during a call.
class VoiceRoute : public QObject
{
    Q_OBJECT

public:
    VoiceRoute();

    void Want(const VoiceWish& wish);
    const VoiceWish& Wish() const { return wish; }
    /// Calls the function once: when the latest wish is met or has failed, at the latest when an answer is due.
    void WhenSettled(const std::function<void()>& answer);

protected:
    /// Starts to work towards the latest wish, after the current work.
    void Apply();
    /// Works towards the wish until Settle() or Await() is called.
    virtual void Work() = 0;
    /// @param problem says why the wish could not be met; empty on success.
    void Settle(const QString& problem);
    /// Ends the work until something changes.
    void Await() { working = false; }
    /// Returns whether the wish has changed since the current work began.
    bool IsOutdated() const { return again; }

private:
    void Report(const QString& problem);

    VoiceWish wish;
    bool working = false;
    bool again = false;
    bool settled = true;
    QTimer retry;
    QString reported;
    PendingAnswers pendingAnswers;
};
