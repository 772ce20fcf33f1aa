#include "Commands.h"
#include "Help.h"

#include <QCoreApplication>

namespace
{

/// Whatever the locale: the service's texts are UTF-8 too.
QStringList Words(int argc, char** argv)
{
    QStringList words;
    for (int index = 1; index < argc; ++index)
        words.append(QString::fromUtf8(argv[index]));
    return words;
}

Outcome Help(Arguments arguments)
{
    const QString text = arguments.positional.isEmpty() ? GeneralHelp() : CommandHelp(TakeCommand(arguments));
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
    QCoreApplication application(argc, argv);
    const QStringList words = Words(argc, argv);
    if (words.value(0) == QLatin1String("complete")) {
        for (const QString& candidate : Completions(words.mid(1)))
            PrintLine(stdout, candidate);
        return ExitDone;
    }

    // Known before the command line is: an error in it is to be told in JSON too.
    const bool json = words.contains(QStringLiteral("--json"));
    Progress progress(json);
    QJsonObject object;
    ExitStatus exitStatus = ExitDone;
    try {
        const Outcome outcome = Run(Arguments(words), progress);
        object = outcome.details;
        if (!json && !outcome.text.isEmpty())
            PrintLine(stdout, outcome.text);
        if (outcome.text.isEmpty() && outcome.details.isEmpty() && progress.Steps().isEmpty())
            return ExitDone;
    } catch (const Failure& failure) {
        exitStatus = failure.exitStatus;
        object.insert(QStringLiteral("error"), failure.text);
        if (failure.serviceStatus)
            object.insert(QStringLiteral("status"), failure.serviceStatus);
        PrintLine(stderr, QStringLiteral("phonectl: ") + Printable(failure.text));
    }
    if (json) {
        object.insert(QStringLiteral("exitStatus"), exitStatus);
        if (!progress.Steps().isEmpty())
            object.insert(QStringLiteral("events"), progress.Steps());
        PrintLine(object);
    }
    return exitStatus;
}
