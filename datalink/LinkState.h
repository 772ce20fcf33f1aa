#pragma once

enum LinkState {
    LinkStateUnknown, ///< the look-up failed
    LinkStateDown,    ///< the interface does not exist or is not up
    LinkStateUp,
};

/// Looks up whether a network interface exists and is up. Logs a failure of the look-up itself.
/// @param interface the kernel's name of the interface, such as "ppp0".
LinkState LookUpLink(const char* interface);
