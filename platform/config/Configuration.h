#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

class QFileInfo;

/// Client of the device's configuration store: sections of keys with text values in an INI file, KOVA_CONFIG_FILE or
/// else kova/config.ini in the user's configuration folder. Make a client for each access.
class Configuration
{
public:
    /// @param clientName the object path that errors are logged under.
    explicit Configuration(const char* clientName);

    /// False if the file exists and cannot be read or parsed, or is larger than 1 MiB. A missing file counts as an
    /// empty store.
    bool IsValid() const;

    /// Reads one value. A missing file, section or key yields the default.
    /// @param ok set to false if the store is not valid, else to true; may be null.
    /// @param fresh reads the file again, instead of using what this client has read before.
    QString ReadConfigValue(const QString& section, const QString& key, const QString& defaultValue, bool* ok,
                            bool fresh) const;

    /// Writes one value and keeps all others. Replaces the whole file, so that after a power cut it has either the old
    /// or the new state. Creates a missing folder.
    /// @param mayDefer does not wait until the value is on the disk.
    /// @return false if the file is not valid, stays locked for 3 seconds or cannot be written to the disk. The reason
    /// is logged.
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
