#pragma once

#include <QString>

/// How the network carries a message's text.
struct SmsParts {
    int count;            ///< short messages that it takes
    const char* alphabet; ///< "GSM 7-bit", or "UCS-2" when a character is not in the GSM alphabet
};

/// The parts as 3GPP TS 23.040 (9.2.3.24.1) divides a text, in the alphabets of 3GPP TS 23.038. The GSM daemon divides
/// it in the end, and may do otherwise.
SmsParts CountSmsParts(const QString& text);
