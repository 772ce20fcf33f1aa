#pragma once

#include "Commands.h"

/// Controls the device over the bus.
class ControlService : public QObject
{
    Q_OBJECT

public:
    ControlService(Device& device, Commands& commands);

    /// Claims the name on the bus. @return an error message, empty on success.
    QString Join();

    int Command(const QString& line, QString& answer);
    QStringList History() const { return device.History(); }
    void ClearHistory() { device.ClearHistory(); }
    QVariantMap State() const { return device.State(); }

Q_SIGNALS:
    void Event(const QString& text);

private Q_SLOTS:
    void OnBusLost();

private:
    Device& device;
    Commands& commands;
};
