#pragma once

#include "BusService.h"
#include "Modem.h"

/// The modem behind the GSM daemon's bus contract.
class GsmDaemon : public QObject
{
    Q_OBJECT

public:
    GsmDaemon(BusService& service, Modem& modem);

private:
    void HandleRequests();
    void ReportPower(Modem::Power power);

    BusService& service;
    Modem& modem;
};
