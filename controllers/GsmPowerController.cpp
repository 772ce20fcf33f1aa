#include "GsmPowerController.h"

#include "Gsm.h"
#include "Log.h"

#include <iterator>

namespace
{

const char* StatusName(GsmPowerStatus status)
{
    static constexpr const char* names[] = {"GsmPowerStatusOff", "GsmPowerStatusOn", "GsmPowerStatusForcedOff"};
    const int index = status - GsmPowerStatusOff;
    return index >= 0 && index < static_cast<int>(std::size(names)) ? names[index] : "GsmPowerStatusUnknown";
}

}

GsmPowerController& GsmPowerController::Instance()
{
    static GsmPowerController instance;
    return instance;
}

bool GsmPowerController::PowerOn()
{
    const bool success = Gsm::Instance().SetEnabled(true);
    if (success)
        status = GsmPowerStatusOn;
    return success;
}

bool GsmPowerController::ResetOff()
{
    LOG(LogLevelProgress, "RESET to OFF");
    status = GsmPowerStatusOff;
    requestedOn = false;

    const bool success = Gsm::Instance().SetEnabled(false);
    if (!success)
        LOG(LogLevelError, "Reset failed");
    return success;
}

bool GsmPowerController::RequestOn()
{
    const GsmPowerStatus before = status;
    bool success = true;

    requestedOn = true;
    switch (status) {
    case GsmPowerStatusUnknown:
    case GsmPowerStatusOff: success = PowerOn(); break;
    case GsmPowerStatusOn:
    case GsmPowerStatusForcedOff: break;
    }

    LOG(LogLevelProgress, "(RequestOn) Status=%s => Status=%s, requestedOn=%d", StatusName(before), StatusName(status),
        requestedOn);
    return success;
}

bool GsmPowerController::RequestOff()
{
    const GsmPowerStatus before = status;

    requestedOn = false;
    switch (status) {
    case GsmPowerStatusUnknown:
    case GsmPowerStatusOn:
        Gsm::Instance().SetEnabled(false);
        status = GsmPowerStatusOff;
        break;
    case GsmPowerStatusOff:
    case GsmPowerStatusForcedOff: break;
    }

    LOG(LogLevelProgress, "(RequestOff) Status=%s, => Status=%s, requestedOn=%d", StatusName(before),
        StatusName(status), requestedOn);
    return true;
}

bool GsmPowerController::ForceOff(bool force)
{
    const GsmPowerStatus before = status;
    bool success = true;

    switch (status) {
    case GsmPowerStatusUnknown:
    case GsmPowerStatusOn:
        if (force) {
            Gsm::Instance().SetEnabled(false);
            status = GsmPowerStatusForcedOff;
        }
        break;
    case GsmPowerStatusOff:
        if (force)
            status = GsmPowerStatusForcedOff;
        break;
    case GsmPowerStatusForcedOff:
        if (force)
            break;
        if (requestedOn)
            success = PowerOn();
        else
            status = GsmPowerStatusOff;
        break;
    }

    LOG(LogLevelProgress, "(ForceOff=%d) Status=%s, => Status=%s, requestedOn=%d", force, StatusName(before),
        StatusName(status), requestedOn);
    return success;
}
