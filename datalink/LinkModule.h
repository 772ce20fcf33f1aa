#pragma once

#include "LinkState.h"

/// The part of the look-up that needs Qt Network. It is a module of its own, loaded by the first look-up: a service
/// without a data link saves the memory, and every service saves the time at start-up.
/// @return the same as LookUpLink(), but without a line in the log.
extern "C" LinkState phone_look_up_link(const char* interface);

constexpr char LinkModuleSymbol[] = "phone_look_up_link";
