#include "Contacts.h"

#include "ContactsDatabase.h"

#include <QStandardPaths>

#include <dlfcn.h>

namespace kova_provider
{

namespace
{

constexpr unsigned int FlagCount = 7;

QString DatabasePath()
{
    const QString path = qEnvironmentVariable("KOVA_CONTACTS_DB");
    return path.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                                QStringLiteral("/kova/contacts.db")
                          : path;
}

ReadContacts* LoadReader()
{
    // Found beside this library; it stays loaded.
    void* module = dlopen(DatabaseModule, RTLD_NOW);
    return module ? reinterpret_cast<ReadContacts*>(dlsym(module, ReadContactsSymbol)) : nullptr;
}

uint Flags(const Contact& contact)
{
    const bool flags[FlagCount] = {contact.emergency, contact.mayBeCalled, contact.mayBeTexted, contact.receivesAlarms,
                                   contact.mayCallIn, contact.mayText,     contact.favourite};
    uint mask = 0;
    for (unsigned int bit = 0; bit < FlagCount; ++bit)
        mask |= flags[bit] ? 1U << bit : 0U;
    return mask;
}

}

Contacts::Contacts(const char*) : loaded(false)
{
    static ReadContacts* const read = LoadReader();
    loaded = read && read(DatabasePath(), contacts);
    if (!loaded)
        contacts.clear();
}

bool Contacts::IsLoaded() const
{
    return loaded;
}

QList<Contact> Contacts::getContacts(ContactFilter filter) const
{
    QList<Contact> matching;
    for (const Contact& contact : contacts) {
        if ((Flags(contact) & filter) == filter)
            matching.append(contact);
    }
    return matching;
}

}
