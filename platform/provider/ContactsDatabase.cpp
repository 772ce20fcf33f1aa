#include "ContactsDatabase.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUuid>
#include <QVariant>

using kova_provider::Contact;

namespace
{

constexpr char ReadOnlyOptions[] = "QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=1000";

Contact MakeContact(const QString& phoneNumber, uint flags)
{
    const auto has = [flags](kova_provider::ContactFilter flag) { return (flags & flag) != 0; };
    return {phoneNumber,
            has(kova_provider::ContactFilterEmergency),
            has(kova_provider::ContactFilterMayBeCalled),
            has(kova_provider::ContactFilterMayBeTexted),
            has(kova_provider::ContactFilterReceivesAlarms),
            has(kova_provider::ContactFilterMayCallIn),
            has(kova_provider::ContactFilterMayText),
            has(kova_provider::ContactFilterFavourite)};
}

bool ReadAll(QSqlDatabase database, QList<Contact>& contacts)
{
    QSqlQuery query(database);
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT phone_number, flags FROM contacts ORDER BY id")))
        return false;
    while (query.next())
        contacts.append(MakeContact(query.value(0).toString(), query.value(1).toUInt()));
    return !query.lastError().isValid();
}

}

bool kova_provider_read_contacts(const QString& path, QList<Contact>& contacts)
{
    const QString connection = QUuid::createUuid().toString();
    bool read = false;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        database.setConnectOptions(ReadOnlyOptions);
        database.setDatabaseName(path);
        read = database.open() && ReadAll(database, contacts);
    }
    QSqlDatabase::removeDatabase(connection);
    return read;
}
