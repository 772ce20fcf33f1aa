#pragma once

#include "Arguments.h"

// What a person gives, read and checked. Each throws a Failure that names the argument.

/// The text that bytes from outside hold.
/// @param what they are, for the Failure when they are not UTF-8 or hold a zero.
QString FromUtf8(const QByteArray& bytes, const QString& what);

/// A phone number: digits, * and #, one + in front; anything with --raw. Without it, what sets digits apart for the eye
/// is taken out.
QString CheckedNumber(const QString& number, const Arguments& arguments);

/// A message's text: the argument, or standard input when it is missing or "-".
QString MessageText(const QString& argument);

/// The access point's name.
QString CheckedApn(const QString& apn);

/// The password from where the command line says, or an empty one.
/// @param argument the one that stands on the command line itself, empty when there is none.
QString Password(const QString& argument, const Arguments& arguments);
