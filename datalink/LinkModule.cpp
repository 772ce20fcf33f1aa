#include "LinkModule.h"

#include <QNetworkInterface>

#include <cerrno>
#include <net/if.h>

LinkState phone_look_up_link(const char* interface)
{
    const QNetworkInterface link = QNetworkInterface::interfaceFromName(QString::fromLatin1(interface));
    if (link.isValid())
        return link.flags().testFlag(QNetworkInterface::IsUp) ? LinkStateUp : LinkStateDown;
    // Qt reports an invalid interface also if it cannot ask the kernel, for want of a descriptor for example. Believe
    // only the kernel that there is none.
    errno = 0;
    return if_nametoindex(interface) == 0 && errno == ENODEV ? LinkStateDown : LinkStateUnknown;
}
