#pragma once

#include "Commands.h"

/// What phonectl is and can do.
QString GeneralHelp();

QString CommandHelp(const Command& command);

/// What the commands are that begin with a word.
QString GroupHelp(const QString& word);

/// What may come next on a command line, for the shell; ":files" alone when that is a file.
/// @param words those after the program's name; the last is the one that is being typed.
QStringList Completions(QStringList words);
