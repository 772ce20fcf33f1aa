#include "ContactBook.h"

#include "Outcome.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlError>
#include <QStandardPaths>
#include <QVariant>

namespace
{

constexpr char ConnectionName[] = "contacts";
constexpr char WaitForOthers[] = "QSQLITE_BUSY_TIMEOUT=5000";
constexpr char WaitForOthersReadOnly[] = "QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=5000";

constexpr const char* flagWords[] = {"emergency",   "may be called", "may be texted", "receives alarms",
                                     "may call in", "may text",      "favourite"};

QString DatabasePath()
{
    const QString path = qEnvironmentVariable("KOVA_CONTACTS_DB");
    return path.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                                QStringLiteral("/kova/contacts.db")
                          : path;
}

Failure Refused(const QString& path, const QString& what)
{
    return {ExitRefused, QStringLiteral("contacts database \"%1\": %2").arg(path, what)};
}

}

QStringList ContactBook::FlagWords(uint flags)
{
    QStringList words;
    for (const char* word : flagWords) {
        if (flags & 1U)
            words.append(QLatin1String(word));
        flags >>= 1U;
    }
    return words;
}

ContactBook::ContactBook(Access access)
    : path(DatabasePath()),
      existed(QFileInfo::exists(path)),
      database(QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QLatin1String(ConnectionName)))
{
    if (access == Read && !existed)
        return;
    if (!database.isValid())
        throw Refused(path,
                      QStringLiteral("Qt's SQLite driver is not installed (libqt6sql6-sqlite, libqt5sql5-sqlite)"));
    const QString folder = QFileInfo(path).absolutePath();
    if (access == Write && !QDir().mkpath(folder))
        throw Refused(path, QStringLiteral("its folder cannot be made"));
    database.setDatabaseName(path);
    database.setConnectOptions(QLatin1String(access == Write ? WaitForOthers : WaitForOthersReadOnly));
    if (!database.open())
        throw Refused(path, QStringLiteral("it cannot be opened: ") + database.lastError().databaseText());
}

ContactBook::~ContactBook()
{
    database.close(); // takes back a transaction that has not been committed
    database = QSqlDatabase();
    QSqlDatabase::removeDatabase(QLatin1String(ConnectionName));
    if (!existed && QFileInfo(path).size() == 0)
        QFile::remove(path); // made in vain
}

QSqlQuery ContactBook::Run(const QString& statement, const QVariantList& values)
{
    QSqlQuery query(database);
    bool done = query.prepare(statement);
    for (const QVariant& value : values)
        query.addBindValue(value);
    done = done && query.exec();
    if (!done)
        throw Refused(path, query.lastError().databaseText());
    return query;
}

QList<ContactBook::Contact> ContactBook::All()
{
    QList<Contact> contacts;
    if (!database.isOpen())
        return contacts;
    QSqlQuery query = Run(QStringLiteral("SELECT phone_number, name, flags FROM contacts ORDER BY id"));
    while (query.next())
        contacts.append({query.value(0).toString(), query.value(1).toString(), query.value(2).toUInt()});
    if (query.lastError().isValid())
        throw Refused(path, query.lastError().databaseText());
    return contacts;
}

void ContactBook::Add(const Contact& contact)
{
    Run(QStringLiteral("BEGIN IMMEDIATE"));
    Run(QStringLiteral("CREATE TABLE IF NOT EXISTS contacts (id INTEGER PRIMARY KEY, name TEXT NOT NULL, "
                       "phone_number TEXT NOT NULL, flags INTEGER NOT NULL)"));
    QSqlQuery present = Run(QStringLiteral("SELECT name FROM contacts WHERE phone_number = ?"), {contact.number});
    if (present.next())
        throw Refused(path,
                      QStringLiteral("NUMBER \"%1\" is there already, as \"%2\"; 'phonectl contacts remove %1' first")
                          .arg(contact.number, present.value(0).toString()));
    Run(QStringLiteral("INSERT INTO contacts (name, phone_number, flags) VALUES (?, ?, ?)"),
        {contact.name, contact.number, contact.flags});
    Run(QStringLiteral("COMMIT"));
}

void ContactBook::Remove(const QString& number)
{
    if (!existed)
        throw Refused(path, QStringLiteral("it does not exist, so NUMBER \"%1\" is not in it").arg(number));
    if (Run(QStringLiteral("DELETE FROM contacts WHERE phone_number = ?"), {number}).numRowsAffected() == 0)
        throw Refused(path, QStringLiteral("NUMBER \"%1\" is not in it").arg(number));
}
