#include "ModemStack.h"

#include "GsmdLog.h"

namespace
{

constexpr int RetryLinkMs = 60000; ///< spares a network that refuses the connection

}

ModemStack::ModemStack(const QString& wantedModem) : wantedModem(wantedModem)
{
    linkTimer.setSingleShot(true);
    connect(&linkTimer, &QTimer::timeout, this, &ModemStack::TryLink);
}

void ModemStack::BringUpLink(const Apn& apn)
{
    linkApn = apn;
    linkTimer.stop();
    TryLink();
}

void ModemStack::TryLink()
{
    if (!linkApn || !CanConnect() || linkTimer.isActive())
        return;
    Connect(*linkApn, [this](bool success) {
        GSMD_LOG(success ? LogLevelProgress : LogLevelWarning, "The data connection is %s", success ? "up" : "refused");
        if (!success)
            linkTimer.start(RetryLinkMs);
    });
}
