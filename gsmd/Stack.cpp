#include "Stack.h"

#include "LogGsmd.h"

namespace
{

constexpr int RetryLinkMs = 60000; ///< spares a network that refuses the connection

}

Stack::Stack(const QString& wantedModem) : wantedModem(wantedModem)
{
    linkTimer.setSingleShot(true);
    connect(&linkTimer, &QTimer::timeout, this, &Stack::TryLink);
}

void Stack::BringUpLink(const Apn& apn)
{
    linkApn = apn;
    linkTimer.stop();
    TryLink();
}

void Stack::TryLink()
{
    if (!linkApn || !CanConnect() || linkTimer.isActive())
        return;
    Connect(*linkApn, [this](bool success) {
        GSMD_LOG(success ? LogLevelProgress : LogLevelWarning, "The data connection is %s", success ? "up" : "refused");
        if (!success)
            linkTimer.start(RetryLinkMs);
    });
}
