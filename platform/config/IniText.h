#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

/// The text of an INI file, as QSettings reads and writes it.
namespace IniText
{

/// @param values receives what the text holds, by section/key.
/// @return false when the text is not an INI file's.
bool Parse(const QByteArray& text, QMap<QString, QString>& values);

/// Sets one value in the text and keeps all others.
/// @param folder where a passing copy of the text can be written.
/// @return false, with the text unchanged, when it cannot be done.
bool SetValue(QByteArray& text, const QString& name, const QString& value, const QString& folder);

}
