#pragma once

#include "LinkState.h"

/// The part of the look-up that needs Qt Network stands in a module of its own, loaded at the first look-up: a service
/// without a data connection does not carry a network stack in its memory, and none waits for it at start-up.
/// @return as LookUpLink(), which logs.
extern "C" LinkState phone_look_up_link(const char* interface);

constexpr char LinkModuleSymbol[] = "phone_look_up_link";
