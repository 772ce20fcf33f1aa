#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

class QFileInfo;

/// Client of the device's configuration store: sections of keys with text values in an INI file, KOVA_CONFIG_FILE or
/// else kova/config.ini in the user's configuration folder. A client is made for one access and thrown away.
class Configuration
{
public:
    /// @param clientName who asks; the object path of a service.
    explicit Configuration(const char* clientName);

    /// False when the file exists and cannot be read or parsed, or is larger than 1 MiB. A missing file is an empty
    /// store.
    bool IsValid() const;

    /// Reads one value; a missing file, section or key reads as the default.
    /// @param ok if given, set to false when the store could not be read, else to true.
    /// @param fresh reads the file again, else what the client found when it was made or last read.
    QString ReadConfigValue(const QString& section, const QString& key, const QString& defaultValue, bool* ok,
                            bool fresh) const;

    /// Writes one value and keeps all others. The file is replaced as a whole: after a power cut it holds the old or
    /// the new state. The folder is made when it is missing.
    /// @param mayDefer lets the store put off the way to the disk; without it the value is there when the call returns.
    /// @return false, and nothing is changed, when the file is not valid, locked for 3 seconds or cannot be written;
    /// the reason is logged.
    bool WriteConfigValue(const QString& section, const QString& key, const QString& value, bool mayDefer);

private:
    bool Load() const;
    QString Write(const QString& name, const QString& value, bool mayDefer);
    QString Replace(const QFileInfo& store, const QString& made, const QString& name, const QString& value,
                    bool mayDefer);

    QByteArray client;
    QString path;
    mutable QMap<QString, QString> values; ///< by section/key
    mutable bool valid;
};
