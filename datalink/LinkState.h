#pragma once

enum LinkState {
    LinkStateUnknown, ///< the look-up could not be made
    LinkStateDown,    ///< the interface does not exist or is not up
    LinkStateUp,
};

/// Tells whether a network interface exists and is up. A failure of the look-up itself is logged.
/// @param interface the interface's name in the kernel, as "ppp0".
LinkState LookUpLink(const char* interface);
