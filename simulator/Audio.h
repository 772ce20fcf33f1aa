#pragma once

#include "BusService.h"

/// The device's audio path behind its three services. It keeps what it is told.
class Audio
{
public:
    Audio(BusService& soundManager, BusService& outputControl, BusService& inputControl);

    QVariantMap State() const { return state; }

private:
    void Keep(BusService& service, const QString& method, const QString& key, const QVariant& initial);
    void Tell(BusService& service, const QString& method, const QString& key);

    QVariantMap state;
};
