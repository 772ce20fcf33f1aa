#pragma once

#include "Phone.h"

// What --wait does after a request was accepted: follow the phone until the request has come to its end, telling each
// step. Each throws a Failure when the end is a bad one.

/// Until the modem is registered to the network with a checked SIM card.
void FollowOn(Phone& phone, Progress& progress);

/// Until the modem is off.
void FollowOff(Phone& phone, Progress& progress);

/// Until the queue has reported the message that was just queued.
/// @param size of the message, for a person.
/// @return what was reported, for --json.
QJsonObject FollowSms(Phone& phone, Progress& progress, const QString& size);

/// Until the call to a number has ended.
QJsonObject FollowCall(Phone& phone, Progress& progress, const QString& number);

/// Until the call to the number that answers has ended.
/// @return that number, for --json.
QJsonObject FollowCallLoop(Phone& phone, Progress& progress, const QStringList& numbers);

/// Ends the call there is, and with it a call loop, which would dial its next number, through the GSM daemon.
/// @return how many calls have ended.
int HangUp(Phone& phone, Progress& progress);
