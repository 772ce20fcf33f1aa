#pragma once

#include <QString>

#include <optional>

// What the values on the phone interface mean, in words.

QString PhoneStatusWord(uint status);
QString SimStatusWord(uint status);
QString VoiceCallWord(uint status);

/// The meaning of a status code and what to do about it.
/// @param isGsmDaemonPresent whether the GSM daemon is on the bus.
QString StatusCodeMeaning(int status, bool isGsmDaemonPresent);

/// The signal strength in words and in dBm.
struct SignalStrength {
    QString word;
    std::optional<int> dBm; ///< missing if the reading is not plausible
};

/// @param rssi the GSM daemon's one-byte reading, in dBm. Some modems leave out the sign (71 is -71 dBm), others send
/// the signed byte (185 is -71 dBm). Readings outside the range of a GSM receiver have no value.
SignalStrength ReadSignal(uint rssi);
