#include "Configuration.h"

#include "IniText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QMutex>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int LockTimeoutMs = 3000;
/// A writer killed between making its lock and filling it in leaves one that only its age betrays.
constexpr int StaleLockMs = 2000;

QString StorePath()
{
    const QString path = qEnvironmentVariable("KOVA_CONFIG_FILE");
    return path.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                                QStringLiteral("/kova/config.ini")
                          : path;
}

/// Follows symbolic links to the file that they stand for, which need not exist yet.
QString FollowLinks(QString path)
{
    constexpr int MostLinks = 40; // as in the kernel
    for (int links = 0; links < MostLinks && QFileInfo(path).isSymLink(); ++links)
        path = QFileInfo(path).symLinkTarget();
    return path;
}

/// Reads the whole file; one that is missing is empty. What is not a regular file is no store.
bool ReadFile(const QString& path, QByteArray& text)
{
    text.clear();
    const int descriptor = open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        return errno == ENOENT;

    struct stat status = {};
    ssize_t length = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? 0 : -1;
    if (length == 0) {
        text.resize(status.st_size);
        length = read(descriptor, text.data(), text.size());
    }
    close(descriptor);
    // A file that someone is writing in place may have become shorter.
    text.truncate(std::max<ssize_t>(length, 0));
    return length >= 0;
}

/// Parses, unless the text is the one parsed last: services ask far more often than settings change.
bool ParseOnce(const QByteArray& text, IniText::Values& values)
{
    static QMutex mutex;
    static QByteArray lastText;
    static IniText::Values lastValues;

    const QMutexLocker lock(&mutex);
    if (text != lastText) {
        IniText::Values parsed;
        if (!IniText::Parse(text, parsed))
            return false;
        lastText = text;
        lastValues = parsed;
    }
    values = lastValues;
    return true;
}

/// Brings a file's contents, or a folder's entries, to the disk.
bool Sync(const QString& path)
{
    const int descriptor = open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool synced = fsync(descriptor) == 0;
    close(descriptor);
    return synced;
}

bool MakeFolder(const QString& path)
{
    const QFileInfo folder(path);
    if (folder.isDir())
        return true;
    return MakeFolder(folder.path()) && QDir().mkpath(path) && Sync(folder.path());
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
    return valid ? values.value(IniText::ValueName(section, key), defaultValue) : defaultValue;
}

bool Configuration::WriteConfigValue(const QString& section, const QString& key, const QString& value, bool mayDefer)
{
    // A link stays a link: what it stands for is replaced.
    const QFileInfo store(FollowLinks(path));
    if (!MakeFolder(store.absolutePath()))
        return false;

    // The lock that QSettings takes: programs that use it on this file are writers like any other.
    QLockFile lock(store.absoluteFilePath() + QStringLiteral(".lock"));
    lock.setStaleLockTime(StaleLockMs);
    if (!lock.tryLock(LockTimeoutMs))
        return false;

    // In a folder of its own, so that the next write removes whatever a killed one has left.
    QDir passing(store.absoluteFilePath() + QStringLiteral(".new"));
    const bool written = passing.removeRecursively() && QDir().mkdir(passing.path()) &&
                         Replace(store, passing.path(), IniText::ValueName(section, key), value, mayDefer);
    passing.removeRecursively();
    return written;
}

/// Replaces the file by one with the value changed, made in the folder given, which is empty.
bool Configuration::Replace(const QFileInfo& store, const QString& folder, const QString& name, const QString& value,
                            bool mayDefer)
{
    const QString target = store.absoluteFilePath();
    QByteArray text;
    IniText::Values wanted;
    if (!ReadFile(target, text) || !ParseOnce(text, wanted))
        return false;
    wanted.insert(name, value);

    const QString made = IniText::WriteChanged(text, name, value, folder);
    IniText::Values found;
    if (made.isEmpty() || !ReadFile(made, text) || !ParseOnce(text, found) || found != wanted)
        return false;

    if (store.exists())
        QFile::setPermissions(made, store.permissions());
    if ((!mayDefer && !Sync(made)) ||
        std::rename(QFile::encodeName(made).constData(), QFile::encodeName(target).constData()) != 0)
        return false;
    values = found;
    valid = true;
    return mayDefer || Sync(store.absolutePath());
}
