#pragma once

#include "Commands.h"

/// The help for phonectl without a command.
QString GeneralHelp();

QString CommandHelp(const Command& command);

/// The help for all commands with this first word.
QString GroupHelp(const QString& word);

/// @return the words that can complete a command line in the shell; ":files" alone for a file name.
/// @param words the words after the program's name; the last one is being typed.
QStringList Completions(QStringList words);
