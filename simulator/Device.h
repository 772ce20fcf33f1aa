#pragma once

#include "AtModem.h"
#include "AtPort.h"
#include "Audio.h"
#include "GsmDaemon.h"

#include <array>

/// The front ends and services that the device offers.
struct DeviceOptions {
    int atTcpPort = 0;        ///< the modem is a serial AT port there instead of the GSM daemon
    QString atAbstractName{}; ///< the same, on a socket in the abstract namespace
    bool atStaysOn = false;   ///< the modem keeps its power when the AT port is closed
    bool audio = true;        ///< the three audio services

    bool HasAtPort() const { return atTcpPort > 0 || !atAbstractName.isEmpty(); }
};

/// The whole simulated device: its services on the bus, what stands behind them, and what was asked of it.
class Device : public QObject
{
    Q_OBJECT

public:
    explicit Device(const DeviceTimes& times, const DeviceOptions& options = {});

    /// Enters the bus with its services, and opens the AT port. @return an empty text, or what prevents it.
    QString Join();

    /// @return the service of that short name (gsm, sound, audio-out, audio-in), or null.
    BusService* Service(const QString& shortName);
    /// @return the service that has the method, or null.
    BusService* ServiceOf(const QString& method);

    Modem& TheModem() { return modem; }
    bool HasAtPort() const { return options.HasAtPort(); }
    /// @return why a call or message would reach nobody, if so.
    QString WhyUnheard() const;
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
    bool IsOffered(const BusService* service) const;

    const DeviceOptions options;
    BusService gsm;
    BusService sound;
    BusService audioOut;
    BusService audioIn;
    Modem modem;
    GsmDaemon daemon;
    AtModem atModem;
    AtPort atPort;
    Audio audio;
    QStringList history;
};
