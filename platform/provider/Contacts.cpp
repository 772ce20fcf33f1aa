#include "Contacts.h"

#include "ContactsDatabase.h"
#include "LibraryLog.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace kova_provider
{

namespace
{

constexpr unsigned int FlagCount = 7;

QString DatabasePath()
{
    const QString path = qEnvironmentVariable("KOVA_CONTACTS_DB");
    return QFileInfo(path.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                                          QStringLiteral("/kova/contacts.db")
                                    : path)
        .absoluteFilePath();
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
    const bool flags[FlagCount] = {contact.emergency, contact.mayBeCalled, contact.mayBeTexted, contact.receivesAlarms,
                                   contact.mayCallIn, contact.mayText,     contact.favourite};
    uint mask = 0;
    for (unsigned int bit = 0; bit < FlagCount; ++bit)
        mask |= flags[bit] ? 1U << bit : 0U;
    return mask;
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
