#include "Commands.h"
#include "Help.h"
#include "Input.h"
#include "StandardStreams.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstring>

namespace
{

/// The arguments, which are UTF-8 in every locale, as the texts on the bus are.
QStringList CommandLine(int argc, char** argv)
{
    QStringList words;
    for (int index = 1; index < argc; ++index)
        words.append(FromUtf8(argv[index], QStringLiteral("argument %1").arg(index)));
    return words;
}

Outcome Help(Arguments arguments)
{
    const QString word = arguments.positional.value(0);
    const QString text = word.isEmpty() || word == QLatin1String("help") ? GeneralHelp()
                         : arguments.positional.size() == 1 && !GroupMembers(word).isEmpty()
                             ? GroupHelp(word)
                             : CommandHelp(TakeCommand(arguments));
    return {text.trimmed(), {{"help", text}}};
}

Outcome Run(Arguments arguments, Progress& progress)
{
    if (arguments.Has(OptionVersion))
        return {QStringLiteral("phonectl " KOVA_VERSION), {{"version", KOVA_VERSION}}};
    if (arguments.positional.value(0) == QLatin1String("help")) {
        arguments.positional.removeFirst();
        return Help(arguments);
    }
    if (arguments.positional.isEmpty() && !arguments.Has(OptionHelp))
        throw Failure{ExitUsage, QStringLiteral("a COMMAND is missing; see 'phonectl --help'")};
    if (arguments.Has(OptionHelp))
        return Help(arguments);
    const Command& command = TakeCommand(arguments);
    CheckArguments(command, arguments);
    return command.run(arguments, progress);
}

}

int main(int argc, char** argv)
{
    // The wrong access modes let reads and writes fail as on a closed stream.
    FillClosedStreams(O_WRONLY, O_RDONLY);
    QCoreApplication application(argc, argv);
    // Look for --json before parsing, so that parse errors are reported as JSON too.
    const bool json = std::any_of(argv + 1, argv + argc, [](const char* word) { return !std::strcmp(word, "--json"); });
    Progress progress(json);
    QJsonObject object;
    ExitStatus exitStatus = ExitDone;
    const auto fail = [&](const Failure& failure) {
        exitStatus = failure.exitStatus;
        object.insert(QStringLiteral("error"), failure.text);
        if (failure.serviceStatus)
            object.insert(QStringLiteral("status"), failure.serviceStatus);
        PrintLine(stderr, QStringLiteral("phonectl: ") + Printable(failure.text));
    };

    bool hasNothingToAdd = false;
    try {
        const QStringList words = CommandLine(argc, argv);
        if (words.value(0) == QLatin1String("complete")) {
            for (const QString& candidate : Completions(words.mid(1)))
                PrintLine(stdout, candidate);
            return ExitDone;
        }
        const Outcome outcome = Run(Arguments(words), progress);
        object = outcome.details;
        exitStatus = outcome.exitStatus;
        if (!json && !outcome.text.isEmpty())
            PrintLine(stdout, outcome.text);
        hasNothingToAdd = outcome.text.isEmpty() && outcome.details.isEmpty() && progress.Steps().isEmpty();
    } catch (const Failure& failure) {
        fail(failure);
    }
    if (!json || hasNothingToAdd || std::ferror(stdout))
        return exitStatus;

    object.insert(QStringLiteral("exitStatus"), exitStatus);
    if (!progress.Steps().isEmpty())
        object.insert(QStringLiteral("events"), progress.Steps());
    try {
        PrintLine(object);
    } catch (const Failure& failure) {
        fail(failure);
    }
    return exitStatus;
}
