#include "Timeline.h"

#include "TimelineDrawing.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace
{

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

QString LastError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

QJsonObject ToJson(const History& history, const TimelineDrawing& drawing)
{
    QJsonObject lanes;
    for (int index = 0; index < History::LaneCount; ++index) {
        const auto lane = static_cast<History::Lane>(index);
        QJsonArray spans;
        for (const History::Span& span : history.Spans(lane))
            spans.append(QJsonObject{{"from", drawing.Moment(span.from)},
                                     {"to", drawing.Moment(span.to)},
                                     {"state", QLatin1String(TimelineDrawing::StateName(span.state))},
                                     {"note", span.note}});
        lanes.insert(QLatin1String(TimelineDrawing::LaneName(lane)), spans);
    }
    QJsonArray marks;
    for (const History::Mark& mark : history.Marks())
        marks.append(QJsonObject{{"time", drawing.Moment(mark.time)},
                                 {"kind", QLatin1String(TimelineDrawing::KindName(mark.kind))},
                                 {"text", mark.text}});
    return {{"lanes", lanes}, {"marks", marks}};
}

void Write(const QString& path, const QByteArray& picture)
{
    QSaveFile replacement(path);
    QFile special(path);
    // QSaveFile would replace a device or a pipe with a regular file.
    const bool isSpecial = special.exists() && !QFileInfo(path).isFile();
    QFileDevice& file = isSpecial ? static_cast<QFileDevice&>(special) : replacement;
    const bool isWritten = file.open(QIODevice::WriteOnly) && file.write(picture) == picture.size() &&
                           (isSpecial ? special.flush() : replacement.commit());
    if (!isWritten)
        throw Failure{ExitRefused, QStringLiteral("--output \"%1\": %2").arg(path, file.errorString())};
}

}

Outcome DrawTimeline(const Arguments& arguments, Progress&)
{
    const QString path = arguments.positional.value(0, QStringLiteral("-"));
    const QString output = arguments.Value(OptionOutput);
    const bool json = arguments.Has(OptionJson);
    const bool isStandardInput = path == QLatin1String("-");
    if (isStandardInput && isatty(STDIN_FILENO))
        throw Failure{ExitUsage, QStringLiteral("FILE is missing: give the log's file, or pipe the log in, as from "
                                                "'journalctl --user -u phonemanager -o short-iso'")};
    if (output.isEmpty() && !json && isatty(STDOUT_FILENO))
        throw Failure{ExitUsage,
                      QStringLiteral("the picture is not for the terminal: --output FILE.svg or FILE.html writes it")};

    const std::unique_ptr<std::FILE, CloseFile> opened(
        isStandardInput ? nullptr : std::fopen(QFile::encodeName(path).constData(), "re"));
    if (!isStandardInput && !opened)
        throw Failure{ExitUsage, QStringLiteral("FILE \"%1\": %2").arg(path, LastError())};
    std::FILE* const file = isStandardInput ? stdin : opened.get();
    const QString source = isStandardInput ? QStringLiteral("standard input") : QStringLiteral("FILE \"%1\"").arg(path);
    LogReader reader(file);
    const History history(reader);
    if (std::ferror(file))
        throw Failure{ExitRefused, source + QStringLiteral(": ") + LastError()};
    if (reader.Lines() == reader.ForeignLines())
        throw Failure{ExitRefused, source + QStringLiteral(" has no line of the phone service's log")};

    const TimelineDrawing drawing(history, reader);
    const bool isPage = output.endsWith(QLatin1String(".html"), Qt::CaseInsensitive);
    if (!output.isEmpty())
        Write(output, isPage ? drawing.Html() : drawing.Svg());
    else if (!json)
        return {QString::fromUtf8(drawing.Svg()).trimmed(), {}};

    QJsonObject details = ToJson(history, drawing);
    details.insert(QStringLiteral("lines"), reader.Lines());
    details.insert(QStringLiteral("foreignLines"), reader.ForeignLines());
    return {QStringLiteral("%1 written, from %2 lines").arg(output).arg(reader.Lines()), details};
}
