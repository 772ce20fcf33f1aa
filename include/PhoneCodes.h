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
enum VoiceCallStatus : uint { VoiceCallTerminated = 0, VoiceCallIncoming = 1, VoiceCallAnswered = 2 };

/// The Status of a method's answer.
enum StatusCode : int {
    StatusSuccess = 0,
    StatusUnreadable = -50,    ///< the modem status or the signal strength could not be read
    StatusPowerFailed = -51,   ///< the power decision could not be carried out
    StatusSmsNotQueued = -53,  ///< the SMS could not be queued
    StatusApnNotSet = -54,     ///< the GSM daemon refused or failed the APN setting
    StatusCallFailed = -55,    ///< a call or call loop is in progress already, or could not be placed or heard
    StatusNoSim = -57,         ///< the SIM card is not present or not yet checked
    StatusNotRegistered = -58, ///< the modem is not registered to the network
};
