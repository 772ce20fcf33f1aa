#pragma once

#include "Contacts.h"

namespace kova_provider
{

/// The flags in the order of their bits in the database.
constexpr bool Contact::*contactFlags[] = {&Contact::emergency,      &Contact::mayBeCalled, &Contact::mayBeTexted,
                                           &Contact::receivesAlarms, &Contact::mayCallIn,   &Contact::mayText,
                                           &Contact::favourite};

/// Reads all contacts of a database, ordered by id. Waits while the database is locked. Writes it only to roll back a
/// write that was interrupted.
/// @param path absolute: SQLite treats some other names (":memory:", "file:...") specially.
/// @return the reason of a failure; empty on success, when all rows were read.
QString ReadContacts(const QString& path, QList<Contact>& contacts);

}
