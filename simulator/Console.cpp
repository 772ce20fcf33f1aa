#include "Console.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace
{

constexpr int LineSize = 16384; ///< the longest line; longer ones are no commands

}

Console::Console(Commands& commands) : commands(commands), readable(STDIN_FILENO, QSocketNotifier::Read)
{
    connect(&readable, &QSocketNotifier::activated, this, &Console::OnReadable);
}

void Console::OnReadable()
{
    char buffer[4096];
    const ssize_t size = read(STDIN_FILENO, buffer, sizeof buffer);
    if (size < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (size <= 0) {
        readable.setEnabled(false);
        if (!pending.isEmpty() || tooLong)
            Take(pending); // a last line without its end
        return;
    }

    for (const char* next = buffer; next != buffer + size; ++next) {
        if (*next == '\n') {
            Take(pending);
            pending.clear();
            tooLong = false;
        } else if (pending.size() == LineSize) {
            pending.clear();
            tooLong = true;
        } else if (!tooLong) {
            pending.append(*next);
        }
    }
}

void Console::Take(const QByteArray& line)
{
    const Commands::Result result =
        tooLong ? Commands::Result{false, QStringLiteral("a line has at most %1 bytes").arg(LineSize)}
                : commands.Run(QString::fromUtf8(line));
    if (!result.text.isEmpty())
        std::printf("%s%s\n", result.done ? "" : "refused: ", qPrintable(result.text));
    std::fflush(stdout);
}
