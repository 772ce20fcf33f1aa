#pragma once

#include "Device.h"

#include <functional>
#include <type_traits>

/// Splits a line into words at blanks. Double quotes enclose a word with blanks, and a backslash escapes the next
/// character. @return nothing if a quote is not closed or a backslash ends the line.
std::optional<QStringList> SplitWords(const QString& line);

/// The commands that control the device, the same on the console, on the bus and in scenarios.
class Commands : public QObject
{
    Q_OBJECT

public:
    struct Result {
        bool done;
        QString text; ///< the output, or why the command was refused
    };

    /// A parsed line.
    struct Prepared {
        std::function<Result()> run; ///< empty if the line is invalid
        QString problem;             ///< why it is invalid
    };

    explicit Commands(Device& device);

    /// Parses a line without executing it.
    Prepared Prepare(const QString& line) const;
    /// Parses and executes a line. A line that is refused changes nothing.
    Result Run(const QString& line) const;

Q_SIGNALS:
    void Quit();

private:
    struct Command {
        QString usage; ///< begins with the name of the command
        QString description;
        int minArguments;
        int maxArguments;
        std::function<Prepared(const QStringList& arguments)> prepare;

        QString Name() const { return usage.section(QLatin1Char(' '), 0, 0); }
    };

    void AddWorldCommands();
    void AddDeviceCommands();
    void AddConsoleCommands();
    Prepared PrepareDaemon(const QStringList& arguments) const;
    Prepared PrepareFault(const QStringList& arguments) const;
    const Command* Find(const QString& name) const;
    QString Help() const;
    QString Completions(const QStringList& words) const;

    Device& device;
    QList<Command> commands;
};

/// @return a line that cannot be executed.
inline Commands::Prepared Invalid(const QString& problem)
{
    return {{}, problem};
}

/// @param action returns nothing if it always succeeds, or else why it was refused, empty on success.
template <typename Action>
Commands::Prepared PrepareAction(Action action)
{
    return {[action] {
                QString problem;
                if constexpr (std::is_void_v<decltype(action())>)
                    action();
                else
                    problem = action();
                return Commands::Result{problem.isEmpty(), problem};
            },
            {}};
}
