#pragma once

#include <QtGlobal>

// The integer values of the phone's bus interface.

/// The modem's state, in the signal PhoneStatus and the answer of GetStatus.
enum ModemStatus : int {
    ModemStatusOff = 0,
    ModemStatusOn = 1, ///< powered, registering
    ModemStatusRegistered = 2,
};

/// The SIM card's state, in the answer of GetStatus.
enum SimStatus : int {
    SimStatusUnchecked = 0,
    SimStatusChecking = 1, ///< power is requested; the check follows once the modem reports power
    SimStatusAbsent = 2,   ///< no card, or the check failed
    SimStatusPresent = 3,
};

/// The state of a call, in the signal VoiceCall.
enum VoiceCallStatus : uint { VoiceCallStatusTerminated = 0, VoiceCallStatusIncoming = 1, VoiceCallStatusAnswered = 2 };

/// The Status in the answer of every method.
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
