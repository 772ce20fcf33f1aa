#pragma once

#include "Audio.h"
#include "Modem.h"

#include <array>

/// The whole simulated device: its services on the bus, what stands behind them, and what was asked of it.
class Device : public QObject
{
    Q_OBJECT

public:
    explicit Device(const DeviceTimes& times);

    /// Enters the bus with all services. @return an empty text, or what prevents it.
    QString Join();

    /// @return the service of that short name (gsm, sound, audio-out, audio-in), or null.
    BusService* Service(const QString& shortName);
    /// @return the service that has the method, or null.
    BusService* ServiceOf(const QString& method);

    Modem& TheModem() { return modem; }
    QVariantMap State() const;
    QVariantMap AudioState() const { return audio.State(); }

    /// The last requests, oldest first; a long run keeps only so many.
    const QStringList& History() const { return history; }
    void ClearHistory() { history.clear(); }

Q_SIGNALS:
    /// "-> " and a request to the device, or "<- " and a signal that it sent.
    void Event(const QString& text);

private:
    std::array<BusService*, 4> Services() { return {&gsm, &sound, &audioOut, &audioIn}; }

    BusService gsm;
    BusService sound;
    BusService audioOut;
    BusService audioIn;
    Modem modem;
    Audio audio;
    QStringList history;
};
