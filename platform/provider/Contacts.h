#pragma once

#include <QList>
#include <QString>

namespace kova_provider
{

/// One contact and its permissions. Each flag is one bit of the database's flags column, in this order from bit 0.
struct Contact {
    QString phoneNumber;
    bool emergency;
    bool mayBeCalled;
    bool mayBeTexted;
    bool receivesAlarms;
    bool mayCallIn;
    bool mayText;
    bool favourite;
};

/// A bit mask of contact flags. A contact matches if it has every bit of the filter.
enum ContactFilter : unsigned int {
    ContactFilterAll = 0,
    ContactFilterEmergency = 1,
    ContactFilterMayBeCalled = 2,
    ContactFilterMayBeTexted = 4,
    ContactFilterReceivesAlarms = 8,
    ContactFilterMayCallIn = 16,
    ContactFilterMayText = 32,
    ContactFilterFavourite = 64,
};

/// Read-only client of the device's contacts, an SQLite database: KOVA_CONTACTS_DB or else kova/contacts.db in the
/// user's data folder.
class Contacts
{
public:
    /// Reads the database and logs a failure. Waits up to 5 seconds while a program writes it, and rolls back a write
    /// that was interrupted, for example by a power cut.
    /// @param clientName the object path that errors are logged under.
    explicit Contacts(const char* clientName);

    /// False if the database is missing, damaged, locked for longer, or has no contacts table.
    bool IsLoaded() const;

    /// The contacts that have every flag of the filter, ordered by id; empty if they are not loaded.
    QList<Contact> getContacts(ContactFilter filter) const;

private:
    QList<Contact> contacts;
    bool loaded;
};

}
