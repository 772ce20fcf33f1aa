#pragma once

#include "Outcome.h"

#include <QMap>
#include <QString>
#include <QStringList>

/// Bits, so that a command can list the options that it accepts.
enum Option : unsigned {
    OptionNone = 0,
    OptionHelp = 1,
    OptionVersion = 2,
    OptionJson = 4,
    OptionWait = 8,
    OptionTimeout = 16,
    OptionRaw = 32,
    OptionMayCallIn = 64,
    OptionPasswordFile = 128,
    OptionAskPassword = 256,
    OptionWatch = 512,
    OptionOutput = 1024,
    OptionsEverywhere = OptionHelp | OptionVersion | OptionJson,
};

struct OptionRow {
    Option option;
    const char* name;  ///< with its dashes
    const char* value; ///< the name of its value, or null if it has none
    const char* help;
};

extern const OptionRow optionRows[];
extern const OptionRow* const optionRowsEnd;

/// The parsed command line. Options may be anywhere before "--".
class Arguments
{
public:
    /// Throws a Failure for an unknown option, a missing value, or a value for an option that has none.
    explicit Arguments(const QStringList& words);

    bool Has(Option option) const { return options.contains(option); }
    QString Value(Option option) const { return options.value(option); }

    /// The value of --timeout in milliseconds, 0 if it is not given.
    int TimeoutMs() const { return timeoutMs; }

    /// Throws a Failure if an option is given that is not in the bit mask.
    void Allow(unsigned allowed, const QString& command) const;

    QStringList positional;

private:
    QMap<Option, QString> options;
    int timeoutMs = 0;
};

/// @return "; did you mean 'X'?" with the closest candidate, or an empty string if none is close.
QString DidYouMean(const QString& word, const QStringList& candidates);
