#pragma once

#include <QList>
#include <QString>

namespace kova_provider
{

/// One contact and what it may do. Each flag is one bit of the database's flags column, in this order from bit 0.
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

/// A bit mask of contact flags: a contact matches when it has every bit of the filter.
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

/// Client of the device's contacts, which it only reads: an SQLite database, KOVA_CONTACTS_DB or else kova/contacts.db
/// in the user's data folder. A write that was cut short, by a power cut perhaps, is taken back first.
class Contacts
{
public:
    /// Reads the database, and waits up to 5 seconds for a program that writes it. What makes that fail is logged.
    /// @param clientName who asks; the object path of a service.
    explicit Contacts(const char* clientName);

    /// False when the database is missing, damaged, locked for longer, or has no contacts table.
    bool IsLoaded() const;

    /// The contacts that have every flag of the filter, in the order of their ids; empty when not loaded.
    QList<Contact> getContacts(ContactFilter filter) const;

private:
    QList<Contact> contacts;
    bool loaded;
};

}
