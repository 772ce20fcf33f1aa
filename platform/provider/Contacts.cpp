#include "Contacts.h"

#include "ContactsDatabase.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <dlfcn.h>

namespace kova_provider
{

namespace
{

constexpr unsigned int FlagCount = 7;

QFileInfo Database()
{
    const QString path = qEnvironmentVariable("KOVA_CONTACTS_DB");
    return QFileInfo(path.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                                          QStringLiteral("/kova/contacts.db")
                                    : path);
}

ReadContacts* LoadReader()
{
    // Beside this library; it stays loaded.
    Dl_info self = {};
    if (dladdr(reinterpret_cast<void*>(&LoadReader), &self) == 0)
        return nullptr;
    const QDir folder = QFileInfo(QFile::decodeName(self.dli_fname)).absoluteDir();
    void* module = dlopen(QFile::encodeName(folder.filePath(DatabaseModule)).constData(), RTLD_NOW);
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
    const QFileInfo database = Database();
    if (!database.isFile())
        return;
    static ReadContacts* const read = LoadReader();
    // SQLite gives some names a meaning of their own (":memory:", "file:..."), but no absolute path.
    loaded = read && read(database.absoluteFilePath(), contacts);
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
