#include <Contacts.h>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

using kova_provider::Contact;
using kova_provider::ContactFilter;
using kova_provider::Contacts;

namespace
{

constexpr char Table[] = "CREATE TABLE contacts (id INTEGER PRIMARY KEY, name TEXT NOT NULL, phone_number TEXT NOT "
                         "NULL, flags INTEGER NOT NULL)";

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
    QSqlDatabase database; ///< open connection of another program

    void Execute(const QString& statement)
    {
        QSqlQuery query(database);
        if (!query.exec(statement))
            QFAIL(qPrintable(query.lastError().text()));
    }

    void MakeDatabase(const QString& name)
    {
        database = QSqlDatabase::addDatabase("QSQLITE");
        database.setDatabaseName(folder->filePath(name));
        QVERIFY(database.open());
        Execute(Table);
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
        MakeDatabase("contacts.db");
        const Contacts contacts("/client");
        QVERIFY(contacts.IsLoaded());
        QCOMPARE(Numbers(contacts, 0), QString("+1 +2 +3 +4"));
        QCOMPARE(Numbers(contacts, 16), QString("+1 +3 +4"));
        QCOMPARE(Numbers(contacts, 48), QString("+3 +4"));
        QCOMPARE(Numbers(contacts, 64), QString("+3"));
        QCOMPARE(Numbers(contacts, 128), QString()); // no such flag
    }

    void OpensTheFileOfTheNameGiven()
    {
        MakeDatabase("real.db");
        for (const char* name : {"file:contacts.db?mode=memory", "a b%20#?.db", "l\u00fcnk.db"}) {
            QVERIFY(QFile::link("real.db", QString::fromUtf8(name)));
            qputenv("KOVA_CONTACTS_DB", name);
            QVERIFY2(Numbers(Contacts("/client"), 0) == "+1 +2 +3 +4", name);
        }
    }

    void IsNotLoadedWithoutAReadableTable_data()
    {
        QTest::addColumn<QString>("what");
        for (const char* what : {"missing", "empty", "text", "cut", "no table", "other columns", "folder", "locked"})
            QTest::newRow(what) << what;
    }

    void IsNotLoadedWithoutAReadableTable()
    {
        QFETCH(QString, what);
        if (what == "folder") {
            QVERIFY(QDir().mkdir("contacts.db"));
        } else if (what == "empty" || what == "text") {
            QFile file("contacts.db");
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(QByteArray("not a database\n").repeated(what == "text" ? 1000 : 0));
        } else if (what != "missing") {
            MakeDatabase("contacts.db");
            if (what == "no table") {
                Execute("DROP TABLE contacts");
            } else if (what == "other columns") {
                Execute("ALTER TABLE contacts DROP COLUMN flags");
            } else if (what == "locked") {
                Execute("BEGIN EXCLUSIVE");
            } else {
                for (int doubled = 0; doubled < 10; ++doubled)
                    Execute("INSERT INTO contacts SELECT id + (SELECT max(id) FROM contacts), name, phone_number, "
                            "flags FROM contacts");
                QVERIFY(QFile::resize("contacts.db", QFileInfo("contacts.db").size() / 2));
            }
        }
        const QStringList before = QDir().entryList(QDir::AllEntries | QDir::Hidden);

        const Contacts contacts("/client");
        QVERIFY(!contacts.IsLoaded());
        QCOMPARE(Numbers(contacts, 0), QString());
        QCOMPARE(QDir().entryList(QDir::AllEntries | QDir::Hidden), before);
    }
};

QTEST_GUILESS_MAIN(ContactsTest)
#include "ContactsTest.moc"
