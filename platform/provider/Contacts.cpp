#include "Contacts.h"

#include "ContactsDatabase.h"
#include "DeviceFiles.h"
#include "LibraryLog.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace kova_provider
{

namespace
{

QString DatabasePath()
{
    return QFileInfo(DeviceFiles::Path(DeviceFiles::Contacts)).absoluteFilePath();
}

/// @return the reason of a failure; empty on success.
QString Load(QList<Contact>& contacts)
{
    const QString path = DatabasePath();
    struct stat status = {};
    if (stat(QFile::encodeName(path).constData(), &status) != 0)
        return QString::fromLocal8Bit(std::strerror(errno));
    return S_ISREG(status.st_mode) ? ReadContacts(path, contacts) : QStringLiteral("not a regular file");
}

uint Flags(const Contact& contact)
{
    uint flags = 0;
    uint bit = 1;
    for (bool Contact::*flag : contactFlags) {
        flags |= contact.*flag ? bit : 0;
        bit <<= 1;
    }
    return flags;
}

}

Contacts::Contacts(const char* clientName)
{
    const QString failure = Load(contacts);
    loaded = failure.isEmpty();
    if (!loaded)
        LIBRARY_LOG(clientName, LogLevelError, "Can't read contacts: %s: %s", DatabasePath().toLocal8Bit().constData(),
                    failure.toLocal8Bit().constData());
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
