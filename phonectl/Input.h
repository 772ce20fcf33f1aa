#pragma once

#include "Arguments.h"

// User input, read and checked. Each function throws a Failure that names the invalid argument.

/// Decodes UTF-8. Throws a Failure for other bytes and for zeros.
/// @param what the name of the input in the Failure.
QString FromUtf8(const QByteArray& bytes, const QString& what);

/// Checks a phone number: digits, * and #, with one + in front. Removes visual separators. --raw allows anything.
QString CheckedNumber(const QString& number, const Arguments& arguments);

/// The text of a message: the argument, or standard input if the argument is missing or "-".
QString MessageText(const QString& argument);

/// Checks the name of an access point.
QString CheckedApn(const QString& apn);

/// The password from the command line, a file or the terminal; empty if none is given.
/// @param argument the password on the command line, empty if there is none.
QString Password(const QString& argument, const Arguments& arguments);
