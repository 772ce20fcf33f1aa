#include "Configuration.h"

#include "DeviceFiles.h"
#include "IniText.h"
#include "LibraryLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QMutex>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int LockTimeoutMs = 3000;
/// Age of a lock file without an owner: its writer was killed before it could write its name. Must be shorter than the
/// timeout.
constexpr int StaleLockMs = 2000;
/// Far more than settings need, and little enough to read at each request.
constexpr off_t MaxFileSize = 1024 * 1024;
/// The end of the name of a write's temporary folder.
constexpr char WorkSuffix[] = ".new-XXXXXX";

QString SystemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

/// Follows symbolic links to their target, which need not exist.
QString FollowLinks(QString path)
{
    constexpr int MaxLinks = 40; // as in the kernel
    for (int links = 0; links < MaxLinks && QFileInfo(path).isSymLink(); ++links)
        path = QFileInfo(path).symLinkTarget();
    return path;
}

/// Reads the whole file. A missing file reads as empty.
/// @return the reason of a failure; empty on success.
QString ReadFile(const QString& path, QByteArray& text)
{
    text.clear();
    const QByteArray name = QFile::encodeName(path);
    // Check the type first: merely opening a device may act on it.
    struct stat status = {};
    if (stat(name.constData(), &status) != 0)
        return errno == ENOENT ? QString() : SystemError();
    if (!S_ISREG(status.st_mode))
        return QStringLiteral("not a regular file");
    if (status.st_size > MaxFileSize)
        return QStringLiteral("larger than %1 bytes").arg(MaxFileSize);

    const int descriptor = open(name.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0)
        return errno == ENOENT ? QString() : SystemError();
    text.resize(status.st_size);
    const ssize_t length = read(descriptor, text.data(), text.size());
    const QString failure = length < 0 ? SystemError() : QString();
    close(descriptor);
    // A program that writes the file in place may have shortened it.
    text.truncate(std::max<ssize_t>(length, 0));
    return failure;
}

/// Parses a text unless it is the one parsed last: services read far more often than settings change.
/// @return the reason of a failure; empty on success.
QString ParseOnce(const QByteArray& text, IniText::Values& values)
{
    static QMutex mutex;
    static QByteArray lastText;
    static IniText::Values lastValues;
    static QString lastFailure;

    const QMutexLocker lock(&mutex);
    if (text != lastText) {
        IniText::Values parsed;
        const QString failure = IniText::Parse(text, parsed);
        if (!failure.isEmpty() && failure != QLatin1String(IniText::NotIni))
            return failure; // The next try may succeed, so do not remember it.
        lastText = text;
        lastValues = parsed;
        lastFailure = failure;
    }
    values = lastValues;
    return lastFailure;
}

/// Waits until a file's contents, or a folder's entries, are on the disk.
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
    return MakeFolder(folder.path()) && mkdir(QFile::encodeName(path).constData(), 0777) == 0 && Sync(folder.path());
}

/// @return the reason of a failure; empty on success.
QString AcquireLock(QLockFile& lock, const QString& lockPath)
{
    // QLockFile reads an existing lock, and reading anything but a regular file may block for ever.
    struct stat status = {};
    if (lstat(QFile::encodeName(lockPath).constData(), &status) == 0 && !S_ISREG(status.st_mode))
        return QStringLiteral("its lock is not a regular file");
    // A lock with a living owner never becomes stale, however slow the disk is; one without an owner does.
    lock.setStaleLockTime(0);
    if (lock.tryLock(LockTimeoutMs))
        return {};
    if (lock.error() != QLockFile::LockFailedError)
        return QStringLiteral("its lock cannot be written; is the disk full?");
    qint64 process = 0;
    QString host;
    QString program;
    if (lock.getLockInfo(&process, &host, &program))
        return QStringLiteral("locked by process %1 (%2)").arg(process).arg(program);
    lock.setStaleLockTime(StaleLockMs);
    return lock.tryLock() ? QString() : QStringLiteral("locked");
}

/// Removes the temporary folders of killed writers. Needs the lock.
void RemoveStaleFolders(const QFileInfo& store)
{
    const QString begin = store.fileName() + QLatin1String(WorkSuffix).chopped(std::strlen("XXXXXX"));
    const QFileInfoList folders =
        store.absoluteDir().entryInfoList(QDir::Dirs | QDir::Hidden | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    for (const QFileInfo& folder : folders) {
        if (folder.fileName().startsWith(begin))
            QDir(folder.absoluteFilePath()).removeRecursively();
    }
}

}

Configuration::Configuration(const char* clientName)
    : client(clientName),
      path(DeviceFiles::Path(DeviceFiles::Settings)),
      valid(Load())
{
}

bool Configuration::Load() const
{
    QByteArray text;
    return ReadFile(path, text).isEmpty() && ParseOnce(text, values).isEmpty();
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
    const QString failure = Write(IniText::ValueName(section, key), value, mayDefer);
    if (!failure.isEmpty())
        LIBRARY_LOG(client.constData(), LogLevelError, "Can't write settings: %s: %s", path.toLocal8Bit().constData(),
                    failure.toLocal8Bit().constData());
    return failure.isEmpty();
}

/// @return the reason of a failure; empty on success.
QString Configuration::Write(const QString& name, const QString& value, bool mayDefer)
{
    // Replace the target of a link, not the link.
    const QFileInfo store(FollowLinks(path));
    const QString folder = store.absolutePath();
    if (!MakeFolder(folder) || access(QFile::encodeName(folder).constData(), W_OK) != 0)
        return SystemError();

    // Use the lock file of QSettings, so that programs which write this file with QSettings are locked out too.
    const QString lockPath = store.absoluteFilePath() + QStringLiteral(".lock");
    QLockFile lock(lockPath);
    const QString locked = AcquireLock(lock, lockPath);
    if (!locked.isEmpty())
        return locked;

    RemoveStaleFolders(store);
    QByteArray work = QFile::encodeName(store.absoluteFilePath()) + WorkSuffix;
    if (!mkdtemp(work.data()))
        return SystemError();
    const QString workFolder = QFile::decodeName(work);
    const QString failure = Replace(store, workFolder + QStringLiteral("/config"), name, value, mayDefer);
    QDir(workFolder).removeRecursively();
    return failure;
}

/// Replaces the file with a copy in which the value is changed.
/// @param made the path for the copy, on the same file system.
/// @return the reason of a failure; empty on success.
QString Configuration::Replace(const QFileInfo& store, const QString& made, const QString& name, const QString& value,
                               bool mayDefer)
{
    const QString target = store.absoluteFilePath();
    QByteArray text;
    IniText::Values wanted;
    QString failure = ReadFile(target, text);
    if (failure.isEmpty())
        failure = ParseOnce(text, wanted);
    if (failure.isEmpty())
        failure = IniText::WriteChanged(text, name, value, made);
    if (failure.isEmpty())
        failure = ReadFile(made, text);
    IniText::Values found;
    if (failure.isEmpty())
        failure = ParseOnce(text, found);
    if (!failure.isEmpty())
        return failure;
    wanted.insert(name, value);
    if (found != wanted)
        return QStringLiteral("the changed file does not read back");

    if (store.exists())
        QFile::setPermissions(made, store.permissions());
    if ((!mayDefer && !Sync(made)) ||
        std::rename(QFile::encodeName(made).constData(), QFile::encodeName(target).constData()) != 0)
        return SystemError();
    values = found;
    valid = true;
    return mayDefer || Sync(store.absolutePath()) ? QString() : SystemError();
}
