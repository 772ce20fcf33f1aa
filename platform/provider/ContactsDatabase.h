#pragma once

#include "Contacts.h"

namespace kova_provider
{

/// The part of the library that needs Qt SQL stands in a module of its own, loaded with the first contacts: a service
/// that asks once a day does not carry a database in its memory all day.
constexpr char DatabaseModule[] = "libprovider_qt_sql.so.1";
constexpr char ReadContactsSymbol[] = "kova_provider_read_contacts";

/// Reads all contacts of a database in the order of their ids.
/// @return false when the database or its table cannot be read, from the first row to the last.
using ReadContacts = bool(const QString& path, QList<Contact>& contacts);

}

extern "C" kova_provider::ReadContacts kova_provider_read_contacts;
