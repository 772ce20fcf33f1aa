#pragma once

#include <QObject>

/// What the modem's power was last set to.
enum GsmPowerStatus : int {
    GsmPowerStatusUnknown = 0,
    GsmPowerStatusOff = 1,       ///< off on request, or never on
    GsmPowerStatusOn = 2,        ///< successfully powered on
    GsmPowerStatusForcedOff = 3, ///< held off, whatever is requested
};

/// The only code that powers the modem. It remembers what was last asked and done, so that its users may ask as often
/// as they like while the GSM daemon gets a command only when the state really changes. Main thread only; an operation
/// blocks for at most one command to the daemon.
class GsmPowerController : public QObject
{
    Q_OBJECT

public:
    /// The process's instance, made at the first call.
    static GsmPowerController& Instance();

    GsmPowerStatus Status() const { return status; }

    /// Back to off after the modem went off by itself, or when its state is unknown.
    /// @return whether the daemon took the power-off command; the state is off in any case.
    bool ResetOff();
    /// Somebody needs the modem. While it is forced off this only records the wish.
    /// @return false when the daemon did not power it on; the state stays.
    bool RequestOn();
    /// Nobody needs the modem, or it must be power-cycled. Always true: a power-off that the daemon refused counts as
    /// done.
    bool RequestOff();
    /// Holds the modem off, or releases the hold; a release powers the modem on when somebody wants it.
    /// @return false when the power-on at a release failed; the modem then stays held.
    bool ForceOff(bool force);

private:
    GsmPowerController() = default;

    bool PowerOn();

    GsmPowerStatus status = GsmPowerStatusOff;
    bool requestedOn = false;
};
