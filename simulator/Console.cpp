#include "Console.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace
{

constexpr int MaxLine = 16384; ///< bytes

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
            Run(pending); // the last line has no line end
        return;
    }

    for (const char* next = buffer; next != buffer + size; ++next) {
        if (*next == '\n') {
            Run(pending);
            pending.clear();
            tooLong = false;
        } else if (pending.size() == MaxLine) {
            pending.clear();
            tooLong = true;
        } else if (!tooLong) {
            pending.append(*next);
        }
    }
}

void Console::Run(const QByteArray& line)
{
    const Commands::Result result =
        tooLong ? Commands::Result{false, QStringLiteral("a line has at most %1 bytes").arg(MaxLine)}
                : commands.Run(QString::fromUtf8(line));
    if (!result.text.isEmpty())
        std::printf("%s%s\n", result.done ? "" : "refused: ", qPrintable(result.text));
    std::fflush(stdout);
}
