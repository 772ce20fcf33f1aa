#pragma once

#include <QVariant>

/// Converts a value to the Qt type that carries a D-Bus type: b, y, i, u, d, s, as or a{sv}.
/// @return an invalid value if the conversion is not possible.
QVariant ToBusType(const QVariant& value, const QString& type);

/// The form of a value on the console and in the history: strings are quoted, and their control characters escaped.
QString ToText(const QVariant& value);
QString ToText(const QVariantList& values);
