#pragma once

#include <QtGlobal>

// The values that the phone interface carries on the bus.

/// The modem's state; also what the signal PhoneStatus and GetStatus tell.
enum ModemStatus : int {
    ModemStatusOff = 0,
    ModemStatusOn = 1, ///< powered, trying to register
    ModemStatusRegistered = 2,
};

enum SimStatus : int {
    SimStatusUnchecked = 0,
    SimStatusChecking = 1, ///< power-on requested, the check follows when the modem reports that it is powered
    SimStatusAbsent = 2,   ///< or the check failed
    SimStatusPresent = 3,
};

/// What the signal VoiceCall tells.
enum VoiceCallStatus : uint { VoiceCallStatusTerminated = 0, VoiceCallStatusIncoming = 1, VoiceCallStatusAnswered = 2 };

/// The Status of a method's answer.
enum StatusCode : int {
    StatusCodeSuccess = 0,
    StatusCodeUnreadable = -50,    ///< the modem status or the signal strength could not be read
    StatusCodePowerFailed = -51,   ///< the power decision could not be carried out
    StatusCodeSmsNotQueued = -53,  ///< the SMS could not be queued
    StatusCodeApnNotSet = -54,     ///< the GSM daemon refused or failed the APN setting
    StatusCodeCallFailed = -55,    ///< a call or call loop is in progress already, or could not be placed or heard
    StatusCodeNoSim = -57,         ///< the SIM card is not present or not yet checked
    StatusCodeNotRegistered = -58, ///< the modem is not registered to the network
};
