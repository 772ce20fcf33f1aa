#pragma once

/// The part of the look-up that needs Qt Network stands in a module of its own, loaded at the first look-up: a service
/// without a data connection does not carry a network stack in its memory, and none waits for it at start-up.
constexpr char LinkModule[] = "libphone_link.so.1";
constexpr char LinkModuleSymbol[] = "phone_is_link_up";

using IsLinkUpFunction = bool(const char* interface);

extern "C" IsLinkUpFunction phone_is_link_up;
