#pragma once

#include "Device.h"

/// Splits a line at blanks. Double quotes hold a word with blanks together, a backslash takes the next character as it
/// is. @return nothing when a quote is not closed.
std::optional<QStringList> SplitWords(const QString& line);

/// The commands that steer the device, from console, bus and scenario alike.
class Commands : public QObject
{
    Q_OBJECT

public:
    struct Result {
        bool done;
        QString text; ///< what came of it, or why it was refused
    };

    /// A line that was read: what it does, or why it makes no sense.
    struct Prepared {
        std::function<Result()> run;
        QString problem;
    };

    explicit Commands(Device& device);

    /// Reads one line and does nothing yet.
    Prepared Prepare(const QString& line) const;
    /// Carries out one line. A line that is refused has changed nothing.
    Result Run(const QString& line) const;

Q_SIGNALS:
    void Quit();

private:
    struct Command {
        QString usage; ///< its first word is the command
        QString about;
        int least; ///< arguments
        int most;
        std::function<Prepared(const QStringList& arguments)> prepare;

        QString Name() const { return usage.section(QLatin1Char(' '), 0, 0); }
    };

    void AddWorld();
    void AddDevice();
    void AddConsole();
    Prepared SteerDaemon(const QStringList& arguments) const;
    Prepared SetFault(const QStringList& arguments) const;
    const Command* Find(const QString& name) const;
    QString Help() const;
    QString Offer(const QStringList& words) const;

    Device& device;
    QList<Command> commands;
};
