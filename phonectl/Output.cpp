#include "Output.h"

#include <QJsonDocument>

#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

constexpr int LiveLineIntervalMs = 500;
constexpr int UsualColumns = 80;

bool WantsColour()
{
    static const bool wants =
        isatty(STDOUT_FILENO) && qEnvironmentVariableIsEmpty("NO_COLOR") && qgetenv("TERM") != "dumb";
    return wants;
}

int Columns()
{
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : UsualColumns;
}

}

QString Printable(const QString& text)
{
    QString shown;
    for (const QChar character : text) {
        if (character.category() == QChar::Other_Control)
            shown += QStringLiteral("\\x%1").arg(character.unicode(), 2, 16, QLatin1Char('0'));
        else
            shown += character;
    }
    return shown;
}

void PrintLine(std::FILE* stream, const QString& line)
{
    std::fprintf(stream, "%s\n", line.toUtf8().constData());
    std::fflush(stream);
}

void PrintLine(const QJsonObject& object)
{
    PrintLine(stdout, QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
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
