#pragma once

#include "PhoneClient.h"

// --wait: follow an accepted request until it has finished, and report each step. Each function throws a Failure if
// the request fails.

/// Until the modem is registered to the network with a checked SIM card.
void FollowOn(PhoneClient& phone, Progress& progress);

/// Until the modem is off.
void FollowOff(PhoneClient& phone, Progress& progress);

/// Until the queue has reported the message that was just queued.
/// @param size of the message, for a person.
/// @return what was reported, for --json.
QJsonObject FollowSms(PhoneClient& phone, Progress& progress, const QString& size);

/// Until the call to a number has ended.
QJsonObject FollowCall(PhoneClient& phone, Progress& progress, const QString& number);

/// Until the call to the number that answers has ended.
/// @return that number, for --json.
QJsonObject FollowCallLoop(PhoneClient& phone, Progress& progress, const QStringList& numbers);

/// Ends the call in progress through the GSM daemon. Repeats that for a call loop, which dials its next number.
/// @return how many calls have ended.
int HangUp(PhoneClient& phone, Progress& progress);
