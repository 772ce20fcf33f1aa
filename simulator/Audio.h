#pragma once

#include "BusService.h"

/// The device's audio path behind its three services. It stores every setting and returns it on request.
class Audio
{
public:
    Audio(BusService& soundManager, BusService& outputControl, BusService& inputControl);

    QVariantMap State() const { return state; }

private:
    /// Handles a method that stores its argument in the state.
    void AddSetter(BusService& service, const QString& method, const QString& key, const QVariant& initial);
    /// Handles a method that returns a value of the state.
    void AddGetter(BusService& service, const QString& method, const QString& key);

    QVariantMap state;
};
