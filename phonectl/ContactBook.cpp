#include "ContactBook.h"

#include "Outcome.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlError>
#include <QVariant>

#include <sys/stat.h>

namespace
{

constexpr char ConnectionName[] = "contacts";
constexpr char WaitForOthers[] = "QSQLITE_BUSY_TIMEOUT=5000";

constexpr const char* flagWords[] = {"emergency",   "may be called", "may be texted", "receives alarms",
                                     "may call in", "may text",      "favourite"};

/// What to do about an error text of SQLite.
constexpr struct {
    const char* problem;
    const char* next;
} remedies[] = {
    {"locked", "another program is writing it: try again"},
    {"readonly", "your user has to own the file and its folder"},
    {"unable to open", "see whether it is a file that your user may read; KOVA_CONTACTS_DB names another"},
    {"not a database", "move it away, and add the contacts again"},
    {"malformed", "restore it from a copy, or move it away and add the contacts again"},
    {"no such", "it is another program's; KOVA_CONTACTS_DB names the contacts'"},
    {"full", "make room on the disk"},
};

Failure Refused(const QString& path, const QString& what)
{
    QString text = QStringLiteral("contacts database \"%1\": %2").arg(path, what);
    for (const auto& [problem, next] : remedies) {
        if (what.contains(QLatin1String(problem)))
            text += QStringLiteral("; ") + QLatin1String(next);
    }
    return {ExitRefused, text};
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

ContactBook::ContactBook(const QString& path)
    : path(path),
      database(QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QLatin1String(ConnectionName)))
{
    if (QFileInfo::exists(path))
        Open();
}

// Opens read-write even for reading, where possible, so that SQLite can roll back an interrupted write.
void ContactBook::Open()
{
    if (!database.isValid())
        throw Refused(path,
                      QStringLiteral("Qt's SQLite driver is not installed (libqt6sql6-sqlite, libqt5sql5-sqlite)"));
    database.setDatabaseName(path);
    database.setConnectOptions(QLatin1String(WaitForOthers));
    if (!database.open())
        throw Refused(path, QStringLiteral("it cannot be opened: ") + database.lastError().databaseText());
}

ContactBook::~ContactBook()
{
    database.close(); // rolls back an uncommitted transaction
    database = QSqlDatabase();
    QSqlDatabase::removeDatabase(QLatin1String(ConnectionName));
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
    // Another phonectl, which is adding the first contact, may have just created the file.
    if (!database.isOpen() || QFileInfo(path).size() == 0)
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
    if (!database.isOpen()) {
        // Contacts are private: create folder and file for their owner only.
        umask(S_IRWXG | S_IRWXO);
        if (!QDir().mkpath(QFileInfo(path).absolutePath()))
            throw Refused(path, QStringLiteral("its folder cannot be created; KOVA_CONTACTS_DB can name another file"));
        Open();
    }
    // Do not remove the file if this fails: another phonectl may be adding a contact to it.
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
    if (!database.isOpen() || QFileInfo(path).size() == 0)
        throw Refused(path, QStringLiteral("it has no contacts, so NUMBER \"%1\" is not in it").arg(number));
    if (Run(QStringLiteral("DELETE FROM contacts WHERE phone_number = ?"), {number}).numRowsAffected() == 0)
        throw Refused(path, QStringLiteral("NUMBER \"%1\" is not in it").arg(number));
}
