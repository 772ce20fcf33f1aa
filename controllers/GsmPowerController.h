#pragma once

#include <QObject>

/// The state that the modem's power was last set to.
enum GsmPowerStatus : int {
    GsmPowerStatusUnknown = 0,
    GsmPowerStatusOff = 1,       ///< off on request, or never on
    GsmPowerStatusOn = 2,        ///< successfully powered on
    GsmPowerStatusForcedOff = 3, ///< held off, even if power is requested
};

/// The only code that switches the modem's power. It remembers the request and the state, so that a request may be
/// repeated and the GSM daemon receives a command only when the state changes. Main thread only; each operation blocks
/// for at most one command to the daemon.
class GsmPowerController : public QObject
{
    Q_OBJECT

public:
    /// The only instance, created by the first call.
    static GsmPowerController& Instance();

    GsmPowerStatus Status() const { return status; }

    /// Switches the modem off and forgets the request, after the modem went off by itself or if its state is unknown.
    /// @return false if the daemon did not accept the power-off; the state is off in any case.
    bool ResetOff();
    /// Requests power. While the modem is forced off, this only records the request.
    /// @return false if the daemon did not accept the power-on; the state is then unchanged.
    bool RequestOn();
    /// Withdraws the request, because nobody needs the modem or to power-cycle it. Always returns true: a power-off
    /// that the daemon refused counts as done.
    bool RequestOff();
    /// Holds the modem off, or releases the hold. A release powers the modem on if power is requested.
    /// @return false if the power-on at a release failed; the hold then remains.
    bool ForceOff(bool force);

private:
    GsmPowerController() = default;

    bool PowerOn();

    GsmPowerStatus status = GsmPowerStatusOff;
    bool requestedOn = false;
};
