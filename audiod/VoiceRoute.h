#pragma once

#include "Waiting.h"

#include <QString>

/// How a call's voice is to be carried between modem and user.
struct VoiceWish {
    bool call = false;
    bool loudspeaker = false; ///< rather than the earpiece, where the device has both
};

/// The way that a call's voice takes. It takes wishes at any time and works towards the latest; what fails is logged,
/// and tried again while there is a call.
class VoiceRoute : public QObject
{
    Q_OBJECT

public:
    VoiceRoute();

    void Want(const VoiceWish& wish);
    const VoiceWish& Wish() const { return wish; }
    /// Calls the function once when the latest wish is met or has failed, at the latest when an answer is due.
    void WhenSettled(const std::function<void()>& answer);

protected:
    /// Works towards the latest wish, after the work that is under way.
    void Apply();
    /// Works towards the wish, to the end that Settle() or Await() reports.
    virtual void Work() = 0;
    /// @param problem why the wish could not be met; empty when it is.
    void Settle(const QString& problem);
    /// Ends the work until there is a new cause for it.
    void Await() { working = false; }
    /// Whether the work under way is out of date.
    bool IsOutdated() const { return again; }

private:
    void Report(const QString& problem);

    VoiceWish wish;
    bool working = false;
    bool again = false;
    bool settled = true;
    QTimer retry;
    QString reported;
    Waiting waiting;
};
