#pragma once

#include "AtModem.h"
#include "AtPort.h"
#include "Audio.h"
#include "GsmFrontEnd.h"

#include <array>

/// The front ends and services that the device offers.
struct DeviceOptions {
    int atTcpPort = 0;        ///< offer the modem as an AT port instead of the GSM daemon; 0 for none
    QString atAbstractName{}; ///< the same on a socket in the abstract namespace; empty for none
    bool atStaysOn = false;   ///< keep the modem's power when the AT port is closed
    bool audio = true;        ///< offer the three audio services

    bool HasAtPort() const { return atTcpPort > 0 || !atAbstractName.isEmpty(); }
};

/// The whole simulated device: its services on the bus, the hardware behind them, and the history of requests.
class Device : public QObject
{
    Q_OBJECT

public:
    explicit Device(const DeviceTimes& times, const DeviceOptions& options = {});

    /// Brings the services on the bus and opens the AT port. @return an error message, empty on success.
    QString Join();

    /// @param shortName gsm, sound, audio-out or audio-in. @return null if the device does not offer it.
    BusService* Service(const QString& shortName);
    /// @return null if no service has the method.
    BusService* ServiceWithMethod(const QString& method);

    Modem& GetModem() { return modem; }
    bool HasAtPort() const { return options.HasAtPort(); }
    /// @return why an incoming call or message would be lost, or an empty text.
    QString WhyUnreachable() const;
    QVariantMap State() const;
    QVariantMap AudioState() const { return audio.State(); }

    /// The last 10000 requests, oldest first.
    const QStringList& History() const { return history; }
    void ClearHistory() { history.clear(); }

Q_SIGNALS:
    /// @param text "-> " and a request to the device, or "<- " and a signal that it sent.
    void Event(const QString& text);

private:
    std::array<BusService*, 4> Services() { return {&gsm, &sound, &audioOut, &audioIn}; }
    bool IsOffered(const BusService& service) const;

    const DeviceOptions options;
    BusService gsm;
    BusService sound;
    BusService audioOut;
    BusService audioIn;
    Modem modem;
    GsmFrontEnd daemon;
    AtModem atModem;
    AtPort atPort;
    Audio audio;
    QStringList history;
};
