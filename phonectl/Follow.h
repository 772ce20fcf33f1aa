#pragma once

#include "Phone.h"

// What --wait does after a request was accepted: follow the phone until the request has come to its end, telling each
// step. Each throws a Failure when the end is a bad one.

/// Until the modem is registered to the network with a checked SIM card.
void FollowOn(Phone& phone, Progress& progress);

/// Until the modem is off.
void FollowOff(Phone& phone, Progress& progress);

/// Until the queue has reported the message that was just queued.
/// @return what was reported, for --json.
QJsonObject FollowSms(Phone& phone, Progress& progress);

/// Until the call to a number has ended.
void FollowCall(Phone& phone, Progress& progress, const QString& number);

/// Until the call to the number that answers has ended.
/// @return that number, for --json.
QJsonObject FollowCallLoop(Phone& phone, Progress& progress, const QStringList& numbers);
