#pragma once

/// Tells whether a network interface exists and is up.
/// @param interface the interface's name in the kernel, as "ppp0".
bool IsLinkUp(const char* interface);
