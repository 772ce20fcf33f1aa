#pragma once

#include "InterfaceDescription.h"

#include <QVariant>

/// Reads a description that is built into the program. One that is not there or broken ends the program: it is a fault
/// of the build.
InterfaceDescription BuiltInDescription(const QString& interface);

/// Converts to the exact type that a D-Bus type stands for (b, y, i, u, d, s, as, a{sv}).
/// @return an invalid value when that is not possible.
QVariant ToBusType(const QVariant& value, const QString& type);

/// A value as console and history show it: texts in quotes, control characters visible.
QString Show(const QVariant& value);
QString Show(const QVariantList& values);
