#pragma once

#include "BusService.h"
#include "Modem.h"

/// Offers the modem as the GSM daemon on the bus.
class GsmFrontEnd : public QObject
{
    Q_OBJECT

public:
    GsmFrontEnd(BusService& service, Modem& modem);

private:
    void AddHandlers();
    void ReportPower(Modem::Power power);

    BusService& service;
    Modem& modem;
};
