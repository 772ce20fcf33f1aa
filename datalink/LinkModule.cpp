#include "LinkModule.h"

#include <QNetworkInterface>

#include <cerrno>
#include <net/if.h>

LinkState phone_look_up_link(const char* interface)
{
    const QNetworkInterface link = QNetworkInterface::interfaceFromName(QString::fromLatin1(interface));
    if (link.isValid())
        return link.flags().testFlag(QNetworkInterface::IsUp) ? LinkStateUp : LinkStateDown;
    // Qt answers the same when it cannot ask the kernel, as without a descriptor left: let the kernel deny the
    // interface.
    errno = 0;
    return if_nametoindex(interface) == 0 && errno == ENODEV ? LinkStateDown : LinkStateUnknown;
}
