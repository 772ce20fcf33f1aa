#pragma once

#include "Device.h"

/// The commands that steer the device, from console, bus and scenario alike.
class Commands : public QObject
{
    Q_OBJECT

public:
    struct Result {
        bool done;
        QString text; ///< what came of it, or why it was refused
    };

    explicit Commands(Device& device);

    /// Carries out one line. A line that is refused has changed nothing.
    Result Run(const QString& line);

Q_SIGNALS:
    void Quit();

private:
    struct Command {
        QString usage;
        int least; ///< arguments
        int most;
        std::function<Result(const QStringList& arguments)> run;
    };

    /// For commands of one word out of a few.
    using Choices = QMap<QString, std::function<QString(const QStringList& arguments)>>;
    void AddChoice(const QString& name, const QString& usage, int most, const Choices& choices);
    void AddWorld();
    void AddDevice();
    Result SetFault(const QStringList& arguments);
    QString Help() const;

    Device& device;
    QMap<QString, Command> commands;
};
