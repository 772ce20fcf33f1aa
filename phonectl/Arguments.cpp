#include "Arguments.h"

#include <QVector>

#include <algorithm>
#include <iterator>
#include <utility>

constexpr OptionRow optionRows[] = {
    {OptionHelp, "--help", nullptr, "Explain phonectl, or the command."},
    {OptionVersion, "--version", nullptr, "Print the version."},
    {OptionJson, "--json", nullptr, "Print one JSON object; monitor and --watch print one per line."},
    {OptionWait, "--wait", nullptr, "Follow the request until it has finished."},
    {OptionWatch, "--watch", nullptr, "Print the state again whenever it changes."},
    {OptionOutput, "--output", "FILE", "Write to FILE."},
    {OptionTimeout, "--timeout", "SECONDS", "Stop following or waiting for an answer after this time."},
    {OptionRaw, "--raw", nullptr, "Pass NUMBER on unchanged and unchecked."},
    {OptionMayCallIn, "--may-call-in", nullptr, "Calls from this contact are answered."},
    {OptionPasswordFile, "--password-file", "FILE",
     "Read the password from the first line of FILE; - is standard input."},
    {OptionAskPassword, "--ask-password", nullptr, "Ask for the password on the terminal without showing it."},
};
const OptionRow* const optionRowsEnd = std::end(optionRows);

namespace
{

constexpr double MaxTimeoutS = 1000000;
constexpr int MaxTypos = 2;

/// The number of letters to insert, remove or replace to turn one word into the other (Levenshtein distance).
int EditDistance(const QString& from, const QString& to)
{
    QVector<int> row(to.size() + 1);
    for (int column = 0; column < row.size(); ++column)
        row[column] = column;
    for (int line = 0; line < from.size(); ++line) {
        int diagonal = std::exchange(row[0], line + 1);
        for (int column = 1; column < row.size(); ++column) {
            const int replaced = diagonal + (from.at(line) == to.at(column - 1) ? 0 : 1);
            diagonal = row[column];
            row[column] = std::min({row[column] + 1, row[column - 1] + 1, replaced});
        }
    }
    return row.last();
}

const OptionRow& FindOption(const QString& name)
{
    const auto row = std::find_if(std::begin(optionRows), std::end(optionRows), [&](const OptionRow& row) {
        return name == QLatin1String(row.name) || (row.option == OptionHelp && name == QLatin1String("-h")) ||
               (row.option == OptionVersion && name == QLatin1String("-V"));
    });
    if (row != std::end(optionRows))
        return *row;

    QStringList names;
    for (const OptionRow& known : optionRows)
        names.append(QLatin1String(known.name));
    throw Failure{ExitUsage, QStringLiteral("no option %1%2 (put -- before arguments that begin with a dash)")
                                 .arg(name, DidYouMean(name, names))};
}

}

Arguments::Arguments(const QStringList& words)
{
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (*word == QLatin1String("--")) {
            positional.append(QStringList(word + 1, words.end()));
            break;
        }
        if (!word->startsWith(QLatin1Char('-')) || word->size() == 1) {
            positional.append(*word);
            continue;
        }

        const auto equals = word->indexOf(QLatin1Char('='));
        const OptionRow& row = FindOption(word->left(equals));
        if (!row.value && equals >= 0)
            throw Failure{ExitUsage, QStringLiteral("%1 takes no value").arg(QLatin1String(row.name))};
        QString value = equals >= 0 ? word->mid(equals + 1) : QString();
        if (row.value && equals < 0) {
            if (++word == words.end())
                throw Failure{ExitUsage, QStringLiteral("%1 takes %2").arg(QLatin1String(row.name), row.value)};
            value = *word;
        }
        options.insert(row.option, value);
    }

    if (Has(OptionTimeout)) {
        bool ok = false;
        const double seconds = Value(OptionTimeout).toDouble(&ok);
        if (!ok || !(seconds > 0 && seconds <= MaxTimeoutS))
            throw Failure{
                ExitUsage,
                QStringLiteral("--timeout \"%1\": give a number of seconds greater than 0").arg(Value(OptionTimeout))};
        timeoutMs = std::max(1, static_cast<int>(seconds * 1000));
    }
}

void Arguments::Allow(unsigned allowed, const QString& command) const
{
    for (const OptionRow& row : optionRows) {
        if (Has(row.option) && !(allowed & row.option))
            throw Failure{ExitUsage, QStringLiteral("%1 has no meaning for '%2'; see 'phonectl help %2'")
                                         .arg(QLatin1String(row.name), command)};
    }
}

QString DidYouMean(const QString& word, const QStringList& candidates)
{
    const auto closest =
        std::min_element(candidates.begin(), candidates.end(), [&](const auto& one, const auto& other) {
            return EditDistance(word, one) < EditDistance(word, other);
        });
    const int distance = EditDistance(word, *closest);
    return distance <= MaxTypos && distance < word.size() ? QStringLiteral("; did you mean '%1'?").arg(*closest)
                                                          : QString();
}
