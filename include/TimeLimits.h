#pragma once

/// The time limits of the phone service that other programs rely on: the daemons below it answer in time, and phonectl
/// and check-gsmd judge by them.
namespace TimeLimits
{

// Answers of the GSM daemon
constexpr int GsmShortMs = 3000;     ///< for methods that the daemon answers at once
constexpr int GsmCallMs = 15000;     ///< dial, answer, hang up: these involve the network
constexpr int GsmSmsMs = 20000;      ///< send a message to the network
constexpr int GsmPowerOffMs = 60000; ///< power off: the modem leaves the network first

// Answers of the audio services
constexpr int SoundManagerCallMs = 5000;
constexpr int SoundManagerMaskMs = 2500;
constexpr int AudioControlMs = 3000;

// The modem
constexpr int PowerToRegisteredMs = 180000; ///< then the modem is power-cycled
constexpr int SimCheckDelayMs = 20000;      ///< after ModemPowered; the modem reads its SIM card meanwhile
constexpr int OutgoingCallS = 30;           ///< until an answer; then the call is hung up

}
