#include "Console.h"

#include <cstdio>
#include <unistd.h>

Console::Console(Commands& commands)
    : commands(commands),
      readable(STDIN_FILENO, QSocketNotifier::Read),
      onTerminal(isatty(STDIN_FILENO))
{
    connect(&readable, &QSocketNotifier::activated, this, &Console::OnReadable);
    Prompt();
}

void Console::OnReadable()
{
    char buffer[4096];
    const ssize_t size = read(STDIN_FILENO, buffer, sizeof buffer);
    if (size <= 0) {
        readable.setEnabled(false);
        return;
    }
    pending.append(buffer, size);

    for (qsizetype end = pending.indexOf('\n'); end >= 0; end = pending.indexOf('\n')) {
        const Commands::Result result = commands.Run(QString::fromUtf8(pending.left(end)));
        pending.remove(0, end + 1);
        if (!result.text.isEmpty())
            std::printf("%s%s\n", result.done ? "" : "refused: ", qPrintable(result.text));
        Prompt();
    }
    std::fflush(stdout);
}

void Console::Prompt() const
{
    if (onTerminal)
        std::printf("> ");
    std::fflush(stdout);
}
