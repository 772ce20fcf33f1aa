#pragma once

#include "Outcome.h"

#include <QMap>
#include <QString>
#include <QStringList>

/// One bit each, so that a command can say which it takes.
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
    const char* value; ///< what it takes, or null
    const char* help;
};

extern const OptionRow optionRows[];
extern const OptionRow* const optionRowsEnd;

/// The command line, taken apart. Options may stand anywhere; "--" ends them.
class Arguments
{
public:
    /// Throws a Failure for an option that does not exist, lacks its value or has one too many.
    explicit Arguments(const QStringList& words);

    bool Has(Option option) const { return options.contains(option); }
    QString Value(Option option) const { return options.value(option); }

    /// Milliseconds of --timeout, 0 when it is not given.
    int TimeoutMs() const { return timeoutMs; }

    /// Throws a Failure when an option is given that is not among those allowed.
    void Allow(unsigned allowed, const QString& command) const;

    QStringList positional;

private:
    QMap<Option, QString> options;
    int timeoutMs = 0;
};

/// What may have been meant: ", did you mean X?", or nothing when no candidate is close.
QString DidYouMean(const QString& word, const QStringList& candidates);
