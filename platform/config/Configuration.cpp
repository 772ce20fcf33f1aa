#include "Configuration.h"

#include "IniText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QMutex>
#include <QSaveFile>
#include <QStandardPaths>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr int LockTimeoutMs = 2000;

QString StorePath()
{
    const QString path = qEnvironmentVariable("KOVA_CONFIG_FILE");
    return path.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                                QStringLiteral("/kova/config.ini")
                          : path;
}

/// Reads the whole file; one that is missing is empty.
bool ReadFile(const QString& path, QByteArray& text)
{
    text.clear();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return !file.exists() && !QFileInfo(path).isSymLink();
    text = file.readAll();
    return file.error() == QFileDevice::NoError;
}

/// Parses, unless the text is the one parsed last: services ask far more often than settings change.
bool ParseOnce(const QByteArray& text, QMap<QString, QString>& values)
{
    static QMutex mutex;
    static QByteArray lastText;
    static QMap<QString, QString> lastValues;
    static bool lastParsed = true;

    const QMutexLocker lock(&mutex);
    if (text != lastText) {
        lastParsed = IniText::Parse(text, lastValues);
        lastText = text;
    }
    values = lastValues;
    return lastParsed;
}

/// Makes a finished rename survive a power cut.
bool SyncFolder(const QString& folder)
{
    const int descriptor = open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool synced = fsync(descriptor) == 0;
    close(descriptor);
    return synced;
}

QString ValueName(const QString& section, const QString& key)
{
    return section + QLatin1Char('/') + key;
}

}

Configuration::Configuration(const char*) : path(StorePath()), valid(Load()) {}

bool Configuration::Load() const
{
    QByteArray text;
    return ReadFile(path, text) && ParseOnce(text, values);
}

bool Configuration::IsValid() const
{
    return valid;
}

QString Configuration::ReadConfigValue(const QString& section, const QString& key, const QString& defaultValue,
                                       bool* ok, bool fresh) const
{
    if (fresh)
        valid = Load();
    if (ok)
        *ok = valid;
    return valid ? values.value(ValueName(section, key), defaultValue) : defaultValue;
}

bool Configuration::WriteConfigValue(const QString& section, const QString& key, const QString& value, bool mayDefer)
{
    // A link stays a link: what it points to is replaced.
    const QFileInfo link(path);
    const QFileInfo target(link.exists() ? link.canonicalFilePath() : link.absoluteFilePath());
    const QString folder = target.absolutePath();
    if (!QDir().mkpath(folder))
        return false;

    QLockFile lock(target.filePath() + QStringLiteral(".lock"));
    if (!lock.tryLock(LockTimeoutMs))
        return false;

    QByteArray text;
    if (!ReadFile(target.filePath(), text) || !ParseOnce(text, values) ||
        !IniText::SetValue(text, ValueName(section, key), value, folder))
        return false;

    QSaveFile file(target.filePath());
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit())
        return false;
    valid = ParseOnce(text, values);
    return valid && (mayDefer || SyncFolder(folder));
}
