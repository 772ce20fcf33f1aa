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

constexpr char NotIni[] = "not an INI file";

/// @param values receives what the text holds.
/// @return why it does not: NotIni, or what the system lacks; empty when it does.
QString Parse(const QByteArray& text, Values& values);

/// Sets one value in a text, keeps all others, and writes the text that results.
/// @param path a file that nobody has read through QSettings before.
/// @return why it cannot be written; empty when it is.
QString WriteChanged(const QByteArray& text, const QString& name, const QString& value, const QString& path);

}
