#include "InputFile.h"

#include <Contacts.h>

/// Whatever the database holds, its contacts are listed or none are.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    qputenv("KOVA_CONTACTS_DB", QFile::encodeName(InputFile(data, size)));
    const kova_provider::Contacts contacts("/fuzz");
    if (!contacts.IsLoaded() && !contacts.getContacts(kova_provider::ContactFilterAll).isEmpty())
        qFatal("contacts of a database that is not loaded");
    return 0;
}
