#pragma once

#include <QString>

/// How a text is divided into short messages.
struct SmsParts {
    int count;            ///< the number of short messages
    const char* alphabet; ///< "GSM 7-bit", or "UCS-2" when a character is not in the GSM alphabet
};

/// The parts as 3GPP TS 23.040 (9.2.3.24.1) divides a text, in the alphabets of 3GPP TS 23.038. The GSM daemon
/// does the actual division, which may differ.
SmsParts CountSmsParts(const QString& text);
