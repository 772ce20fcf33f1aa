#pragma once

#include "Contacts.h"

namespace kova_provider
{

/// Reads all contacts of a database in the order of their ids. A lock is waited for. A write that was cut short is
/// taken back, for which alone the database is written.
/// @param path absolute: SQLite gives some other names (":memory:", "file:...") a meaning of their own.
/// @return why the contacts cannot be read, from the first row to the last; empty when they are.
QString ReadContacts(const QString& path, QList<Contact>& contacts);

}
