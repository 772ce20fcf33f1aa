#pragma once

#include "Arguments.h"
#include "Output.h"

#include <QList>
#include <QStringList>

/// A command of phonectl.
struct Command {
    const char* name;      ///< one word or two
    const char* arguments; ///< as in the usage line: [] is optional, a|b a choice, ... repeats
    unsigned options;      ///< in addition to OptionsEverywhere
    const char* summary;
    const char* details;
    const char* examples; ///< one per line
    Outcome (*run)(const Arguments& arguments, Progress& progress);

    /// The number of arguments that it accepts.
    int MinArguments() const;
    int MaxArguments() const;
    QStringList ArgumentNames() const;
};

const QList<Command>& Commands();

/// @return the command whose name the words begin with, or null.
const Command* FindCommand(const QStringList& words);

/// @return the second words of all commands with this first word, such as "list" for "contacts".
QStringList GroupMembers(const QString& word);

/// Removes the command's name from the arguments. Throws a Failure if they do not begin with a command.
const Command& TakeCommand(Arguments& arguments);

/// Throws a Failure for options that the command does not accept, and for missing, superfluous or invalid arguments.
void CheckArguments(const Command& command, const Arguments& arguments);
