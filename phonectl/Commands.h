#pragma once

#include "Arguments.h"
#include "Output.h"

#include <QList>
#include <QStringList>

/// One row of what phonectl can do.
struct Command {
    const char* name;      ///< one word, or two
    const char* arguments; ///< as usage shows them; in [] what may be left out, a|b a choice, ... for more of the same
    unsigned options;      ///< beside those that all take
    const char* summary;
    const char* details;
    const char* examples; ///< one a line
    Outcome (*run)(const Arguments& arguments, Progress& progress);

    /// How many arguments it takes.
    int Least() const;
    int Most() const;
    QStringList ArgumentNames() const;
};

const QList<Command>& Commands();

/// The command that the words begin with, or null.
const Command* FindCommand(const QStringList& words);

/// What follows a first word that several commands share, as "list" does "contacts"; none when it is no such word.
QStringList GroupMembers(const QString& word);

/// The command that the arguments begin with; its name is taken from them. Throws a Failure when there is none.
const Command& TakeCommand(Arguments& arguments);

/// Throws a Failure for options that the command does not take, and too few, too many or impossible arguments.
void CheckArguments(const Command& command, const Arguments& arguments);
