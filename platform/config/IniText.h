#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

/// The text of an INI file, as QSettings reads and writes it.
namespace IniText
{

/// Values by their names, section/key.
using Values = QMap<QString, QString>;

/// The name of a value in QSettings, which omits the section name [General].
QString ValueName(const QString& section, const QString& key);

constexpr char NotIni[] = "not an INI file";

/// Parses a text.
/// @return the reason of a failure, which is NotIni or a lack of memory; empty on success.
QString Parse(const QByteArray& text, Values& values);

/// Writes a copy of a text in which one value is changed.
/// @param path the copy's path, which this process has not used with QSettings before.
/// @return the reason of a failure; empty on success.
QString WriteChanged(const QByteArray& text, const QString& name, const QString& value, const QString& path);

}
