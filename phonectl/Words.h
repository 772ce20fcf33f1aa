#pragma once

#include <QString>

#include <optional>

// What the values of the phone interface mean, in words.

QString PhoneStatusWord(uint status);
QString SimStatusWord(uint status);
QString VoiceCallWord(uint status);

/// What a status code means and what to do about it.
/// @param isGsmDaemonPresent whether the GSM daemon is on the bus.
QString StatusCodeMeaning(int status, bool isGsmDaemonPresent);

/// The signal strength as a person reads it.
struct SignalStrength {
    QString word;
    std::optional<int> dBm; ///< missing when the reading makes no sense
};

/// @param rssi the GSM daemon's one-byte reading, in dBm. Modems leave out the sign (71 is -71 dBm) or send the signed
/// byte as it is (185 is -71 dBm); both are understood. Readings that no GSM receiver can have stay without a value.
SignalStrength ReadSignal(uint rssi);
