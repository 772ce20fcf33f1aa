#include "Help.h"

#include "ContactBook.h"

#include <QRegularExpression>

#include <algorithm>

namespace
{

constexpr int CommandWidth = 34;
constexpr int OptionWidth = 26;
constexpr int TextWidth = 80;
/// Makes the shell offer file names.
constexpr char Files[] = ":files";

constexpr char Introduction[] = R"(usage: phonectl COMMAND [ARGUMENT...] [OPTION...]

Controls the phone service of this session.

  phonectl enable --wait                    switch the phone on and follow it to the network
  phonectl status                           show the phone's state
  phonectl contacts add +4912345 Anna --may-call-in
  phonectl sms --wait +4912345 "On my way"
  phonectl call +4912345
  phonectl monitor                          print each signal

Commands:
)";

constexpr char Ending[] = R"(
'phonectl help COMMAND' explains a command. Exit status: 0 done, 1 refused or failed, 2 wrong usage,
3 service not on the bus, 4 timed out, 130 interrupted.
)";

QString Usage(const Command& command)
{
    return QStringLiteral("%1 %2").arg(QLatin1String(command.name), QLatin1String(command.arguments)).trimmed();
}

/// One line for each command that begins with a text.
QString CommandLines(const QString& beginning)
{
    QString lines;
    for (const Command& command : Commands()) {
        const QString usage = Usage(command);
        if (usage.startsWith(beginning))
            lines += QStringLiteral("  %1%2\n").arg(usage.leftJustified(CommandWidth), QLatin1String(command.summary));
    }
    return lines;
}

QString OptionLines(unsigned options)
{
    QString lines;
    for (const OptionRow* row = optionRows; row != optionRowsEnd; ++row) {
        const QString name = QStringLiteral("%1 %2").arg(QLatin1String(row->name), QLatin1String(row->value)).trimmed();
        if (options & row->option)
            lines += QStringLiteral("  %1%2\n").arg(name.leftJustified(OptionWidth), QLatin1String(row->help));
    }
    return lines;
}

QString Indented(const char* lines)
{
    return QStringLiteral("  ") + QString::fromLatin1(lines).replace(QLatin1Char('\n'), QLatin1String("\n  "));
}

/// Breaks each line between words.
QString Wrapped(const QString& text)
{
    QStringList lines;
    for (const QString& paragraph : text.split(QLatin1Char('\n'))) {
        lines.append(QString());
        for (const QString& word : paragraph.split(QLatin1Char(' '))) {
            if (lines.last().size() + 1 + word.size() > TextWidth)
                lines.append(QString());
            lines.last() += (lines.last().isEmpty() ? QString() : QStringLiteral(" ")) + word;
        }
    }
    return lines.join(QLatin1Char('\n'));
}

QStringList KnownNumbers()
{
    QStringList numbers;
    try {
        for (const ContactBook::Contact& contact : ContactBook().All())
            numbers.append(Printable(contact.number));
    } catch (const Failure&) {
        // Offer nothing if the contacts cannot be read.
    }
    return numbers;
}

}

QString GeneralHelp()
{
    return QLatin1String(Introduction) + CommandLines({}) + QStringLiteral("\nOptions of all commands:\n") +
           OptionLines(OptionsEverywhere) + QLatin1String(Ending);
}

QString GroupHelp(const QString& word)
{
    return QStringLiteral(
               "usage: phonectl %1 %2 [ARGUMENT...] [OPTION...]\n\n%3\n'phonectl help %1 %4' explains a command.\n")
        .arg(word, GroupMembers(word).join(QLatin1Char('|')), CommandLines(word + QLatin1Char(' ')),
             GroupMembers(word).first());
}

QString CommandHelp(const Command& command)
{
    QString text =
        QStringLiteral("usage: phonectl %1 [OPTION...]\n\n%2.\n").arg(Usage(command), QLatin1String(command.summary));
    if (*command.details)
        text += Wrapped(QLatin1String(command.details)) + QLatin1Char('\n');
    return text + QStringLiteral("\n%1\n\nOptions:\n%2")
                      .arg(Indented(command.examples), OptionLines(command.options | OptionsEverywhere));
}

QStringList Completions(QStringList words)
{
    const QString typed = words.isEmpty() ? QString() : words.takeLast();
    const OptionRow* const valued = std::find_if(optionRows, optionRowsEnd, [&](const OptionRow& row) {
        return row.value && !words.isEmpty() && words.last() == QLatin1String(row.name);
    });
    if (valued != optionRowsEnd)
        return valued->value == QLatin1String("FILE") ? QStringList(QLatin1String(Files)) : QStringList();

    QStringList positional;
    for (const QString& word : words) {
        if (!word.startsWith(QLatin1Char('-')))
            positional.append(word);
    }
    const bool isHelp = positional.value(0) == QLatin1String("help");
    if (isHelp)
        positional.removeFirst();
    const Command* const command = FindCommand(positional);
    QStringList candidates;
    if (typed.startsWith(QLatin1Char('-'))) {
        for (const OptionRow* row = optionRows; row != optionRowsEnd; ++row) {
            if (row->option & ((command ? command->options : 0U) | OptionsEverywhere))
                candidates.append(QLatin1String(row->name));
        }
    } else if (!command) {
        for (const Command& known : Commands()) {
            const QStringList name = QString::fromLatin1(known.name).split(QLatin1Char(' '));
            if (positional.size() < name.size() && name.mid(0, positional.size()) == positional)
                candidates.append(name.at(static_cast<int>(positional.size())));
        }
        if (positional.isEmpty() && !isHelp)
            candidates.append(QStringLiteral("help"));
    } else if (!isHelp) {
        const QStringList wanted = command->ArgumentNames();
        const auto place = positional.size() - QString::fromLatin1(command->name).count(QLatin1Char(' ')) - 1;
        const QString argument =
            command->MaxArguments() > wanted.size() ? wanted.value(0) : wanted.value(static_cast<int>(place));
        if (argument == QLatin1String("FILE"))
            return {QLatin1String(Files)};
        candidates = argument.startsWith(QLatin1String("NUMBER")) ? KnownNumbers() : argument.split(QLatin1Char('|'));
        if (candidates.size() == 1 && candidates.first() == argument)
            candidates.clear();
    }

    QStringList fitting =
        candidates.filter(QRegularExpression(QStringLiteral("^") + QRegularExpression::escape(typed)));
    fitting.removeDuplicates();
    return fitting;
}
