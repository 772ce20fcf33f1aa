#include "ContactsDatabase.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>
#include <QUuid>
#include <QVariant>

#include <sys/statvfs.h>

namespace kova_provider
{

namespace
{

constexpr int LockTimeoutMs = 5000;

// SQLite's result codes. The lowest byte of an extended code is its primary code.
constexpr int PrimaryCodeMask = 0xff;
constexpr int ResultReadOnly = 8;
constexpr int ResultCantOpen = 14;

// SQLite's URI parameters for a database that cannot simply be read. Unlike Qt's default, they never create the file.
constexpr char WithRollback[] = "mode=rw"; ///< rolls back the journal of a writer that died
constexpr char Immutable[] = "mode=ro&immutable=1";

/// True for a complete database on a read-only file system. Reading one with a write-ahead log otherwise creates files
/// beside it.
bool IsImmutable(const QString& path)
{
    struct statvfs status = {};
    return statvfs(QFile::encodeName(path).constData(), &status) == 0 && (status.f_flag & ST_RDONLY) &&
           !QFile::exists(path + QStringLiteral("-wal")) && !QFile::exists(path + QStringLiteral("-journal"));
}

Contact MakeContact(const QString& phoneNumber, uint flags)
{
    Contact contact = {};
    contact.phoneNumber = phoneNumber;
    for (bool Contact::*flag : contactFlags) {
        contact.*flag = flags & 1;
        flags >>= 1;
    }
    return contact;
}

QSqlError ReadAll(QSqlDatabase database, QList<Contact>& contacts)
{
    if (!database.open())
        return database.lastError();
    QSqlQuery query(database);
    query.setForwardOnly(true);
    if (query.exec(QStringLiteral("SELECT phone_number, flags FROM contacts ORDER BY id"))) {
        while (query.next())
            contacts.append(MakeContact(query.value(0).toString(), query.value(1).toUInt()));
    }
    return query.lastError();
}

/// @param access Qt's connection option for the kind of access.
QSqlError Read(const QString& name, const char* access, const QDeadlineTimer& lockDeadline, QList<Contact>& contacts)
{
    const QString connection = QUuid::createUuid().toString();
    QSqlError error;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        database.setDatabaseName(name);
        database.setConnectOptions(
            QStringLiteral("%1;QSQLITE_BUSY_TIMEOUT=%2").arg(QLatin1String(access)).arg(lockDeadline.remainingTime()));
        contacts.clear();
        error = ReadAll(database, contacts);
    }
    QSqlDatabase::removeDatabase(connection);
    return error;
}

}

QString ReadContacts(const QString& path, QList<Contact>& contacts)
{
    const QDeadlineTimer lockDeadline(LockTimeoutMs);
    QSqlError error = Read(path, "QSQLITE_OPEN_READONLY", lockDeadline, contacts);

    const int code = error.nativeErrorCode().toInt() & PrimaryCodeMask;
    if (error.isValid() && (code == ResultReadOnly || code == ResultCantOpen)) {
        const QByteArray uri =
            "file://" + QUrl::toPercentEncoding(path, "/") + '?' + (IsImmutable(path) ? Immutable : WithRollback);
        error = Read(QLatin1String(uri), "QSQLITE_OPEN_URI", lockDeadline, contacts);
    }
    if (!error.isValid())
        return {};
    contacts.clear();
    return error.databaseText().isEmpty() ? error.driverText() : error.databaseText();
}

}
