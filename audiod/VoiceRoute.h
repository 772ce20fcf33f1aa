#pragma once

#include "PendingAnswers.h"

#include <QString>

/// The state of a call's voice route.
struct VoiceSetup {
    bool call = false;
    bool loudspeaker = false; ///< rather than the earpiece, where the device has both
};

/// The route of a call's voice between modem and user. The wanted state may change at any time, and the route is
/// updated to the latest. Failures are logged, and retried during a call.
class VoiceRoute : public QObject
{
    Q_OBJECT

public:
    VoiceRoute();

    void SetWanted(const VoiceSetup& wanted);
    const VoiceSetup& Wanted() const { return wanted; }
    /// Calls the function once: when the route is up to date or the update has failed, or else when an answer is due.
    void WhenUpdated(const std::function<void()>& answer);

protected:
    /// Starts an update, after the current one if there is one.
    void StartUpdate();
    /// Brings the route into the wanted state, and calls FinishUpdate() or WaitForChange() in the end.
    virtual void Update() = 0;
    /// @param problem the reason of a failure; empty on success.
    void FinishUpdate(const QString& problem);
    /// Ends an update that can only succeed after a further StartUpdate().
    void WaitForChange() { updating = false; }
    /// Returns whether the wanted state has changed since the update began.
    bool IsOutdated() const { return again; }

private:
    void Report(const QString& problem);

    VoiceSetup wanted;
    bool updating = false;
    bool again = false;
    bool updated = true;
    QTimer retry;
    QString reported;
    PendingAnswers pendingAnswers;
};
