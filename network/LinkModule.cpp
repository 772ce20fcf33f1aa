#include "LinkModule.h"

#include <QNetworkInterface>

bool phone_is_link_up(const char* interface)
{
    const QNetworkInterface link = QNetworkInterface::interfaceFromName(QString::fromLatin1(interface));
    return link.isValid() && link.flags().testFlag(QNetworkInterface::IsUp);
}
