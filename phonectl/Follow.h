#pragma once

#include "PhoneClient.h"

// --wait: follow an accepted request until it has finished, and report each step. Each function throws a Failure if
// the request fails.

/// Waits until the modem is registered to the network with a checked SIM card.
void FollowOn(PhoneClient& phone, Progress& progress);

/// Waits until the modem is off.
void FollowOff(PhoneClient& phone, Progress& progress);

/// Waits until the message that was just queued is reported.
/// @param size the size of the message, to be shown.
/// @return the keys for --json.
QJsonObject FollowSms(PhoneClient& phone, Progress& progress, const QString& size);

/// Waits until the call to a number has ended.
QJsonObject FollowCall(PhoneClient& phone, Progress& progress, const QString& number);

/// Waits until the call to the number that answers has ended.
/// @return that number, for --json.
QJsonObject FollowCallLoop(PhoneClient& phone, Progress& progress, const QStringList& numbers);

/// Ends the call in progress through the GSM daemon. Repeats that for a call loop, which dials its next number.
/// @return the number of calls that have ended.
int HangUp(PhoneClient& phone, Progress& progress);
