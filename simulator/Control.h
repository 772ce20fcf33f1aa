#pragma once

#include "Commands.h"

/// Steers the device over the bus.
class Control : public QObject
{
    Q_OBJECT

public:
    Control(Device& device, Commands& commands);

    /// Enters the bus. @return an empty text, or what prevents it.
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
