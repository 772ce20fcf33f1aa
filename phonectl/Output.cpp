#include "Output.h"

#include "Outcome.h"

#include <QJsonDocument>

#include <cerrno>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

constexpr int LiveLineIntervalMs = 500;
constexpr int UsualColumns = 80;
constexpr ushort LastLatin1 = 0xff;

bool WantsColour()
{
    static const bool wants =
        isatty(STDOUT_FILENO) && qEnvironmentVariableIsEmpty("NO_COLOR") && qgetenv("TERM") != "dumb";
    return wants;
}

/// Controls (C0, DEL, C1), line and paragraph separators, and the marks, embeddings, overrides and isolates of the
/// bidirectional algorithm (Unicode Standard Annex 9).
bool MisleadsTerminal(QChar character)
{
    const ushort code = character.unicode();
    return character.category() == QChar::Other_Control || code == 0x061c || code == 0x200e || code == 0x200f ||
           (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
}

template <typename Escape>
QString Escaped(const QString& text, Escape escape)
{
    QString shown;
    for (const QChar character : text) {
        if (MisleadsTerminal(character))
            shown += escape(character.unicode());
        else
            shown += character;
    }
    return shown;
}

QString JsonEscape(ushort code)
{
    return QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
}

int Columns()
{
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : UsualColumns;
}

}

QString Printable(const QString& text)
{
    return Escaped(text, [](ushort code) {
        return code <= LastLatin1 ? QStringLiteral("\\x%1").arg(code, 2, 16, QLatin1Char('0')) : JsonEscape(code);
    });
}

void PrintLine(std::FILE* stream, const QString& line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    const bool written = std::fwrite(bytes.constData(), 1, bytes.size(), stream) == static_cast<size_t>(bytes.size()) &&
                         std::fflush(stream) == 0;
    if (!written && stream == stdout)
        throw Failure{ExitRefused, QStringLiteral("standard output: ") + QString::fromLocal8Bit(std::strerror(errno))};
}

void PrintLine(const QJsonObject& object)
{
    // Qt escapes only what JSON requires. The remaining characters can only be in strings, so \uNNNN is valid there.
    PrintLine(stdout, Escaped(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)), JsonEscape));
}

QString Painted(const QString& text, Colour colour)
{
    return WantsColour() && colour != Plain ? QStringLiteral("\033[%1m%2\033[0m").arg(colour).arg(text) : text;
}

Progress::Progress(bool silent) : silent(silent), onTerminal(isatty(STDOUT_FILENO))
{
    elapsed.start();
    tick.setInterval(LiveLineIntervalMs);
    connect(&tick, &QTimer::timeout, this, &Progress::ShowLive);
}

void Progress::Step(const char* event, const QString& text)
{
    steps.append(QJsonObject{{"event", event}, {"elapsed", static_cast<double>(elapsed.elapsed()) / 1000}});
    if (silent)
        return;
    ClearLive();
    PrintLine(stdout, Elapsed() + text);
}

void Progress::Await(const QString& what)
{
    if (silent || !onTerminal)
        return;
    awaited = what;
    if (awaited.isEmpty()) {
        tick.stop();
        ClearLive();
    } else {
        tick.start();
        if (!steps.isEmpty())
            ShowLive();
    }
}

void Progress::ShowLive()
{
    ClearLive();
    std::printf("%s", (Elapsed() + QStringLiteral("waiting for ") + awaited).left(Columns() - 1).toUtf8().constData());
    std::fflush(stdout);
    liveShown = true;
}

void Progress::ClearLive()
{
    if (!liveShown)
        return;
    std::printf("\r\033[K");
    std::fflush(stdout);
    liveShown = false;
}

QString Progress::Elapsed() const
{
    return QStringLiteral("%1 s  ").arg(static_cast<double>(elapsed.elapsed()) / 1000, 7, 'f', 1);
}
