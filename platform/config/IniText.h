#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

/// The text of an INI file, as QSettings reads and writes it.
namespace IniText
{

/// Values by their names, section/key.
using Values = QMap<QString, QString>;

/// The name of a value in QSettings, which takes the keys of the section [General] as keys without a section.
QString ValueName(const QString& section, const QString& key);

/// @param values receives what the text holds.
/// @return false when the text is not an INI file's.
bool Parse(const QByteArray& text, Values& values);

/// Sets one value in a text and keeps all others.
/// @param folder an empty folder to work in; what is left in it is of no use.
/// @return the path of a file in the folder with the text that results; empty when it cannot be written.
QString WriteChanged(const QByteArray& text, const QString& name, const QString& value, const QString& folder);

}
