#include "LogCapture.h"

#include <Contacts.h>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

using kova_provider::Contact;
using kova_provider::ContactFilter;
using kova_provider::Contacts;

namespace
{

/// More rows than fit into the first pages of a database.
constexpr char ManyContacts[] = "WITH n(id) AS (SELECT 100 UNION ALL SELECT id + 1 FROM n LIMIT 4000) "
                                "INSERT INTO contacts SELECT id, 'a', '+1', 16 FROM n";

QString Numbers(const Contacts& contacts, uint filter)
{
    QStringList numbers;
    for (const Contact& contact : contacts.getContacts(static_cast<ContactFilter>(filter)))
        numbers.append(contact.phoneNumber);
    return numbers.join(' ');
}

}

class ContactsTest : public QObject
{
    Q_OBJECT

    std::optional<QTemporaryDir> folder;
    QSqlDatabase database; ///< the connection of another program

    void Execute(const QString& statement) { QVERIFY2(QSqlQuery(database).exec(statement), qPrintable(statement)); }

    void MakeDatabase(const QString& name)
    {
        database = QSqlDatabase::addDatabase("QSQLITE");
        database.setDatabaseName(folder->filePath(name));
        QVERIFY(database.open());
        Execute("CREATE TABLE contacts (id INTEGER PRIMARY KEY, name TEXT NOT NULL, phone_number TEXT NOT NULL, flags "
                "INTEGER NOT NULL)");
        Execute("INSERT INTO contacts VALUES (30, 'c', '+3', 127), (10, 'a', '+1', 16), (20, 'b', '+2', 15), (40, 'd', "
                "'+4', 48)");
    }

private Q_SLOTS:
    void init()
    {
        folder.emplace();
        QVERIFY(folder->isValid() && QDir::setCurrent(folder->path()));
        qputenv("KOVA_CONTACTS_DB", "contacts.db");
    }

    void cleanup()
    {
        database = {};
        QSqlDatabase::removeDatabase(QLatin1String(QSqlDatabase::defaultConnection));
    }

    void ListsByFilterInIdOrder()
    {
        MakeDatabase("real.db");
        for (const char* name : {"contacts.db", "file:contacts.db?mode=memory", "a b%20#?.db", "l\u00fcnk.db"}) {
            QVERIFY(QFile::link("real.db", QString::fromUtf8(name)));
            qputenv("KOVA_CONTACTS_DB", name);
            const Contacts contacts("/client");
            QVERIFY2(contacts.IsLoaded(), name);
            QCOMPARE(Numbers(contacts, 0), QString("+1 +2 +3 +4"));
            QCOMPARE(Numbers(contacts, 16), QString("+1 +3 +4"));
            QCOMPARE(Numbers(contacts, 48), QString("+3 +4"));
            QCOMPARE(Numbers(contacts, 64), QString("+3"));
            QCOMPARE(Numbers(contacts, 128), QString()); // no such flag
        }
    }

    void RollsBackAnInterruptedWrite_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::newRow("journal") << "PRAGMA journal_mode=DELETE";
        QTest::newRow("write-ahead log") << "PRAGMA journal_mode=WAL";
    }

    void RollsBackAnInterruptedWrite()
    {
        QFETCH(QString, mode);
        const QString name = "a%20b?.db";
        qputenv("KOVA_CONTACTS_DB", name.toUtf8());
        MakeDatabase("writing.db");
        Execute(mode);
        Execute("PRAGMA cache_size=1"); // writes pages to the file before the commit
        Execute("BEGIN");
        Execute(ManyContacts);
        for (const char* part : {"", "-journal", "-wal"})
            QFile::copy(QLatin1String("writing.db") + part, name + part);

        const Contacts contacts("/client");
        QVERIFY(contacts.IsLoaded());
        QCOMPARE(Numbers(contacts, 0), QString("+1 +2 +3 +4"));
    }

    void LogsWhyItIsNotLoaded_data()
    {
        QTest::addColumn<QString>("statement");
        QTest::addColumn<QByteArray>("reason");
        QTest::newRow("missing") << QString() << QByteArray("No such file or directory");
        QTest::newRow("text") << QString() << QByteArray("file is not a database");
        QTest::newRow("folder") << QString() << QByteArray("not a regular file");
        QTest::newRow("other columns") << "ALTER TABLE contacts DROP COLUMN flags"
                                       << QByteArray("no such column: flags");
        QTest::newRow("locked") << "BEGIN EXCLUSIVE" << QByteArray("database is locked");
        QTest::newRow("cut") << ManyContacts << QByteArray("database disk image is malformed");
    }

    void LogsWhyItIsNotLoaded()
    {
        QFETCH(QString, statement);
        QFETCH(QByteArray, reason);
        const QByteArray what = QTest::currentDataTag();
        QFile file("contacts.db");
        if (what == "folder")
            QVERIFY(QDir().mkdir(file.fileName()));
        if (what == "text")
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(QByteArray("not a database\n").repeated(1000)) > 0);
        file.close();
        if (!statement.isEmpty()) {
            MakeDatabase(file.fileName());
            Execute(statement);
        }
        if (what == "cut")
            QVERIFY(file.resize(file.size() / 2));
        const QStringList before = QDir().entryList(QDir::AllEntries | QDir::Hidden);

        const Contacts contacts("/client");
        QVERIFY(!contacts.IsLoaded());
        QCOMPARE(Numbers(contacts, 0), QString());
        QCOMPARE(QDir().entryList(QDir::AllEntries | QDir::Hidden), before);
        const QList<Logged> log = TakeLog();
        QCOMPARE(log.size(), 1);
        QCOMPARE(log[0].level, 1U);
        QCOMPARE(log[0].origin, QByteArray("/client"));
        QCOMPARE(log[0].Prefix(), QByteArray("[platform/provider/Contacts.cpp] "
                                             "kova_provider::Contacts::Contacts(const char*)"));
        QVERIFY2(log[0].text.endsWith("Can't read contacts: " +
                                      QFile::encodeName(QDir().absoluteFilePath("contacts.db")) + ": " + reason),
                 log[0].text.constData());
    }
};

QTEST_GUILESS_MAIN(ContactsTest)
#include "ContactsTest.moc"
