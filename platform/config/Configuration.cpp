#include "Configuration.h"

#include "IniText.h"
#include "LibraryLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QMutex>
#include <QStandardPaths>

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
/// A writer killed between making its lock and filling it in leaves one that only its age betrays. Less than the
/// timeout.
constexpr int StaleLockMs = 2000;
/// Far more than settings take, and little enough to read at each request.
constexpr off_t MostBytes = 1024 * 1024;
/// Ends the name of the folder that a write works in.
constexpr char WorkSuffix[] = ".new-XXXXXX";

QString SystemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

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

/// Reads the whole file; one that is missing is empty.
/// @return why the file is no store; empty when it is.
QString ReadFile(const QString& path, QByteArray& text)
{
    text.clear();
    const QByteArray name = QFile::encodeName(path);
    // Look first: opening a device can already act on it.
    struct stat status = {};
    if (stat(name.constData(), &status) != 0)
        return errno == ENOENT ? QString() : SystemError();
    if (!S_ISREG(status.st_mode))
        return QStringLiteral("not a regular file");
    if (status.st_size > MostBytes)
        return QStringLiteral("larger than %1 bytes").arg(MostBytes);

    const int descriptor = open(name.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0)
        return errno == ENOENT ? QString() : SystemError();
    text.resize(status.st_size);
    const ssize_t length = read(descriptor, text.data(), text.size());
    const QString failure = length < 0 ? SystemError() : QString();
    close(descriptor);
    // A file that someone is writing in place may have become shorter.
    text.truncate(std::max<ssize_t>(length, 0));
    return failure;
}

/// Parses, unless the text is the one parsed last: services ask far more often than settings change.
/// @return why the text cannot be parsed; empty when it is.
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
            return failure; // perhaps not the next time
        lastText = text;
        lastValues = parsed;
        lastFailure = failure;
    }
    values = lastValues;
    return lastFailure;
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
    return MakeFolder(folder.path()) && mkdir(QFile::encodeName(path).constData(), 0777) == 0 && Sync(folder.path());
}

/// @return why the lock cannot be taken; empty when it is.
QString Take(QLockFile& lock, const QString& lockPath)
{
    // The lock is read when it is there, and reading anything but a file may never end.
    struct stat status = {};
    if (lstat(QFile::encodeName(lockPath).constData(), &status) == 0 && !S_ISREG(status.st_mode))
        return QStringLiteral("its lock is not a regular file");
    // A writer that lives keeps its lock, however slow its disk is; only a lock that names none ages.
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

/// Removes the folders in which killed writers worked. Needs the lock.
void RemoveRemains(const QFileInfo& store)
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

Configuration::Configuration(const char* clientName) : client(clientName), path(StorePath()), valid(Load()) {}

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

/// @return why the value cannot be written; empty when it is.
QString Configuration::Write(const QString& name, const QString& value, bool mayDefer)
{
    // A link stays a link: what it stands for is replaced.
    const QFileInfo store(FollowLinks(path));
    const QString folder = store.absolutePath();
    if (!MakeFolder(folder) || access(QFile::encodeName(folder).constData(), W_OK) != 0)
        return SystemError();

    // The lock that QSettings takes: programs that use it on this file are writers like any other.
    const QString lockPath = store.absoluteFilePath() + QStringLiteral(".lock");
    QLockFile lock(lockPath);
    const QString locked = Take(lock, lockPath);
    if (!locked.isEmpty())
        return locked;

    RemoveRemains(store);
    QByteArray work = QFile::encodeName(store.absoluteFilePath()) + WorkSuffix;
    if (!mkdtemp(work.data()))
        return SystemError();
    const QString workFolder = QFile::decodeName(work);
    const QString failure = Replace(store, workFolder + QStringLiteral("/config"), name, value, mayDefer);
    QDir(workFolder).removeRecursively();
    return failure;
}

/// Replaces the file by one with the value changed.
/// @param made the path where that one is made, on the same file system.
/// @return why it cannot; empty when it did.
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
