#include "LinkModule.h"

#include <QNetworkInterface>

#include <cerrno>
#include <net/if.h>

LinkState phone_look_up_link(const char* interface)
{
    const QNetworkInterface link = QNetworkInterface::interfaceFromName(QString::fromLatin1(interface));
    if (link.isValid())
        return link.flags().testFlag(QNetworkInterface::IsUp) ? LinkStateUp : LinkStateDown;
    // Qt also reports an invalid interface if it cannot ask the kernel, for example for lack of a descriptor. Treat the
    // link as down only if the kernel confirms that the interface does not exist.
    errno = 0;
    return if_nametoindex(interface) == 0 && errno == ENODEV ? LinkStateDown : LinkStateUnknown;
}
