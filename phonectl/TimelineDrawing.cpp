#include "TimelineDrawing.h"

#include "Output.h"

#include <QDateTime>
#include <QMap>

#include <algorithm>
#include <cmath>

namespace
{

// The picture, in pixels

constexpr double Width = 1480;
constexpr double ChartLeft = 140;
constexpr double ChartWidth = 1000;
constexpr double LegendLeft = ChartLeft + ChartWidth + 20;
constexpr double HeaderHeight = 124;
constexpr double LaneHeight = 24;
constexpr double LaneDistance = 38;
constexpr double SignalHeight = 84;
constexpr double RowHeight = 22;
constexpr double LetterWidth = 7;
/// Marks nearer than this are drawn as one.
constexpr double ClusterWidth = 18;
constexpr double MarkRadius = 8;
constexpr double NarrowestSpan = 2;
constexpr int MostRows = 60;
/// Beside the longest pair of times.
constexpr double RowTextLeft = ChartLeft + 290;
constexpr int MostRowLetters = 140;
constexpr int MostTicks = 9;
constexpr int MostTexts = 20;
constexpr size_t MostHtmlRows = 5000;

constexpr int SignalTopDBm = -40;
constexpr int SignalBottomDBm = -115;
/// Without a report for longer than this the modem would have been switched off and on.
constexpr double LongestSilenceS = 700;

constexpr char Green[] = "#2f9e5f";
constexpr char Amber[] = "#e8a713";
constexpr char RedTone[] = "#d33f49";
constexpr char Grey[] = "#ccd2da";
constexpr char DarkGrey[] = "#6d7787";
constexpr char Blue[] = "#3577d4";
constexpr char Teal[] = "#1b9aaa";
constexpr char Orange[] = "#d9701a";
constexpr char Ink[] = "#20262e";
constexpr char PaleInk[] = "#66707d";
constexpr char Line[] = "#e3e7ec";

struct StateStyle {
    History::Lane lane;
    const char* name;
    const char* colour;
};

constexpr StateStyle states[] = {
    {History::Service, "runs", Green},
    {History::GsmDaemon, "on the bus", Green},
    {History::GsmDaemon, "absent", RedTone},
    {History::Modem, "off", Grey},
    {History::Modem, "forced off", DarkGrey},
    {History::Modem, "registered", Green},
    {History::Modem, "starting", "#f5d98b"},
    {History::Modem, "searching", Amber},
    {History::SimCard, "present", Green},
    {History::SimCard, "being checked", Amber},
    {History::SimCard, "absent", RedTone},
    {History::Call, "dialling", Amber},
    {History::Call, "ringing", Teal},
    {History::Call, "talking", Green},
    {History::Call, "stranger refused", DarkGrey},
    {History::Call, "not answered", RedTone},
    {History::Audio, "switched to the call", Teal},
};
static_assert(std::size(states) == History::StateCount);

constexpr const char* laneNames[] = {"Service", "GSM daemon", "Modem", "SIM card", "Calls", "Audio"};
static_assert(std::size(laneNames) == History::LaneCount);

struct KindStyle {
    const char* name;
    const char* colour;
};

constexpr KindStyle kinds[] = {
    {"received", Blue},      {"queued", Grey},   {"sent", Green},    {"lost", RedTone},
    {"power cycle", Orange}, {"warning", Amber}, {"error", RedTone},
};

/// Escapes a text of the log for XML, and replaces characters that XML does not allow.
QString Xml(const QString& text)
{
    QString shown = Printable(text);
    for (QChar& character : shown) {
        if (character.unicode() >= 0xfffe)
            character = QChar::ReplacementCharacter;
    }
    return shown.toHtmlEscaped();
}

QString Decimal(double value)
{
    return QString::number(value, 'f', 1);
}

QString Label(double x, double y, const QString& text, const char* colour = Ink, const char* more = "")
{
    return QStringLiteral("<text x=\"%1\" y=\"%2\" fill=\"%3\" %4>%5</text>\n")
        .arg(Decimal(x), Decimal(y), QLatin1String(colour), QLatin1String(more), Xml(text));
}

QString Box(double x, double y, double width, double height, const char* colour, const QString& title = {})
{
    return QStringLiteral("<rect x=\"%1\" y=\"%2\" width=\"%3\" height=\"%4\" fill=\"%5\"%6\n")
        .arg(Decimal(x), Decimal(y), Decimal(width), Decimal(height), QLatin1String(colour),
             title.isEmpty() ? QStringLiteral("/>") : QStringLiteral("><title>%1</title></rect>").arg(Xml(title)));
}

QString Cut(const QString& text, int letters)
{
    return text.size() <= letters ? text : text.left(letters - 1) + QChar(0x2026);
}

QString Plural(int count, const char* thing)
{
    return QStringLiteral("%1 %2%3").arg(count).arg(QLatin1String(thing), QLatin1String(count == 1 ? "" : "s"));
}

QString Duration(double seconds)
{
    const qint64 whole = std::llround(seconds);
    if (whole < 120)
        return QStringLiteral("%1 s").arg(whole);
    if (whole < 7200)
        return QStringLiteral("%1 min").arg(whole / 60);
    if (whole < 2 * 86400)
        return QStringLiteral("%1 h %2 min").arg(whole / 3600).arg(whole / 60 % 60);
    return QStringLiteral("%1 d %2 h").arg(whole / 86400).arg(whole / 3600 % 24);
}

}

const char* TimelineDrawing::LaneName(History::Lane lane)
{
    return laneNames[lane];
}

const char* TimelineDrawing::StateName(History::State state)
{
    return states[state].name;
}

const char* TimelineDrawing::KindName(History::Kind kind)
{
    return kinds[kind].name;
}

TimelineDrawing::TimelineDrawing(const History& history, const LogReader& reader)
    : history(history),
      reader(reader),
      length(std::max(history.To() - history.From(), 1.0))
{
}

double TimelineDrawing::X(double time) const
{
    return ChartLeft + (time - history.From()) / length * ChartWidth;
}

QString TimelineDrawing::Clock(double time, const char* format) const
{
    // Show the times of the device's clock, not of the reader's time zone.
    return QLocale::c().toString(QDateTime::fromMSecsSinceEpoch(std::llround(time * 1000), Qt::UTC),
                                 QLatin1String(format));
}

QString TimelineDrawing::Moment(double time) const
{
    return reader.HasTimes() ? Clock(time, "yyyy-MM-dd HH:mm:ss") : QStringLiteral("line %1").arg(std::llround(time));
}

QString TimelineDrawing::Headline() const
{
    if (!reader.HasTimes())
        return QStringLiteral("%1 lines without times: the axis counts lines (journalctl -o short-iso keeps the times)")
            .arg(reader.Lines());
    return QStringLiteral("%1 to %2  (%3), %4 lines of log")
        .arg(Clock(history.From(), "ddd d MMM yyyy HH:mm:ss"), Clock(history.To(), "ddd d MMM yyyy HH:mm:ss"),
             Duration(length), QLocale(QLocale::English).toString(reader.Lines()));
}

QString TimelineDrawing::Summary() const
{
    using H = History;
    const int talked = history.Count(H::Call, H::CallTalking);
    const int unanswered = history.Count(H::Call, H::CallUnanswered);
    const int refused = history.Count(H::Call, H::CallRefused);
    return QStringList{
        QStringLiteral("registered %1 % of the time")
            .arg(history.Duration(H::Modem, H::ModemRegistered) / length * 100, 0, 'f', 0),
        Plural(talked, "call") + QStringLiteral(" put through"),
        QStringLiteral("%1 not answered").arg(unanswered),
        Plural(refused, "stranger") + QStringLiteral(" refused"),
        Plural(history.Count(H::MessageSent), "message") + QStringLiteral(" sent"),
        QStringLiteral("%1 lost").arg(history.Count(H::MessageLost)),
        QStringLiteral("%1 received").arg(history.Count(H::MessageReceived)),
        Plural(history.Count(H::PowerCycle), "power cycle"),
        Plural(history.Count(H::Warning), "warning"),
        Plural(history.Count(H::Error), "error"),
    }
        .join(QStringLiteral("  \u00b7  "));
}

std::vector<TimelineDrawing::Cluster> TimelineDrawing::Clusters(const std::vector<History::Kind>& wanted) const
{
    std::vector<Cluster> clusters;
    for (const History::Mark& mark : history.Marks()) {
        if (std::find(wanted.begin(), wanted.end(), mark.kind) == wanted.end())
            continue;
        // Combine marks that would overlap, and equal marks in a row.
        const double x = X(mark.time);
        const bool joins = !clusters.empty() && (x - X(clusters.back().marks.front()->time) <= ClusterWidth ||
                                                 (clusters.back().marks.back()->text == mark.text &&
                                                  x - X(clusters.back().marks.back()->time) <= ClusterWidth));
        if (!joins)
            clusters.emplace_back();
        clusters.back().marks.push_back(&mark);
    }
    return clusters;
}

QString TimelineDrawing::ClusterText(const Cluster& cluster) const
{
    QStringList order;
    QMap<QString, int> counts;
    for (const History::Mark* mark : cluster.marks) {
        const QString text =
            mark->kind == History::PowerCycle ? QStringLiteral("power cycle: ") + mark->text : mark->text;
        if (++counts[text] == 1)
            order.append(text);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](const QString& one, const QString& other) { return counts[one] > counts[other]; });
    const auto more = order.size() - MostTexts;
    order = order.mid(0, MostTexts);
    for (QString& text : order) {
        if (const int count = counts[text]; count > 1)
            text += QStringLiteral(" (%1 times)").arg(count);
    }
    if (more > 0)
        order.append(QStringLiteral("%1 other texts").arg(more));
    return order.join(QStringLiteral("; "));
}

QString TimelineDrawing::Axis(double top, double bottom) const
{
    static constexpr double steps[] = {1,    2,     5,     10,    15,    30,     60,     120, 300, 600, 900, 1800, 3600,
                                       7200, 10800, 21600, 43200, 86400, 172800, 604800, 1e6, 2e6, 5e6, 1e7, 1e8};
    const double step =
        *std::find_if(std::begin(steps), std::end(steps) - 1, [&](double step) { return length / step <= MostTicks; });
    QString svg;
    QString day;
    for (double time = std::ceil(history.From() / step) * step; time <= history.To(); time += step) {
        const double x = X(time);
        svg += Box(x, top, 1, bottom - top, Line);
        svg += Label(x, top - 6,
                     reader.HasTimes() ? Clock(time, step < 60 ? "HH:mm:ss" : "HH:mm") : Decimal(time).chopped(2),
                     PaleInk, "text-anchor=\"middle\"");
        const QString date = reader.HasTimes() ? Clock(time, "ddd d MMM") : QString();
        if (date != day)
            svg += Label(x, top - 24, date, Ink, "text-anchor=\"middle\" font-weight=\"bold\"");
        day = date;
    }
    return svg;
}

QString TimelineDrawing::Legend(const std::vector<std::pair<QString, QString>>& entries, double top) const
{
    const auto width = [](const QString& name) { return 28 + static_cast<double>(name.size()) * LetterWidth; };
    double total = 0;
    for (const auto& [name, colour] : entries)
        total += width(name);
    QString svg;
    double x = LegendLeft;
    double y = LegendLeft + total > Width ? top + 7 : top + 16; // two lines, or one
    for (const auto& [name, colour] : entries) {
        if (x + width(name) > Width && x > LegendLeft) {
            x = LegendLeft;
            y += 17;
        }
        svg += Box(x, y - 10, 11, 11, colour.toLatin1().constData());
        svg += Label(x + 15, y, name, PaleInk);
        x += width(name);
    }
    return svg;
}

QString TimelineDrawing::LaneOf(History::Lane lane, double top) const
{
    QString svg = Label(ChartLeft - 12, top + 16, QLatin1String(LaneName(lane)), Ink,
                        "text-anchor=\"end\" font-weight=\"bold\"") +
                  Box(ChartLeft, top, ChartWidth, LaneHeight, "#f4f6f8");

    // Spans too short to be seen share a pixel column, which shows the one that matters most.
    std::vector<int> columns(static_cast<size_t>(ChartWidth) + 1, History::None);
    std::vector<int> counts(columns.size(), 0);
    for (const History::Span& span : history.Spans(lane)) {
        const double x = X(span.from);
        const double width = X(span.to) - x;
        if (width < 1) {
            const auto column = static_cast<size_t>(std::clamp(x - ChartLeft, 0.0, ChartWidth));
            columns[column] = std::max<int>(columns[column], span.state);
            ++counts[column];
            continue;
        }
        QString title =
            QStringLiteral("%1: %2").arg(QLatin1String(LaneName(lane)), QLatin1String(StateName(span.state)));
        if (!span.note.isEmpty())
            title += QStringLiteral(", ") + span.note;
        title += QStringLiteral("\n%1 to %2").arg(Moment(span.from), Moment(span.to));
        if (reader.HasTimes())
            title += QStringLiteral(" (%1)").arg(Duration(span.to - span.from));
        svg += Box(x, top, std::max(width, NarrowestSpan), LaneHeight, states[span.state].colour, title);
        if (!span.note.isEmpty() && width > static_cast<double>(span.note.size()) * LetterWidth + 8)
            svg += Label(x + 4, top + 16, span.note, "#ffffff");
    }
    for (size_t column = 0; column < columns.size();) {
        const size_t start = column;
        int count = 0;
        while (column < columns.size() && columns[column] == columns[start])
            count += counts[column++];
        if (columns[start] != History::None)
            svg += Box(ChartLeft + static_cast<double>(start), top,
                       std::max(static_cast<double>(column - start), NarrowestSpan), LaneHeight,
                       states[columns[start]].colour,
                       QStringLiteral("%1: %2 short spells, %3 among them")
                           .arg(QLatin1String(LaneName(lane)))
                           .arg(count)
                           .arg(QLatin1String(states[columns[start]].name)));
    }

    std::vector<std::pair<QString, QString>> legend;
    for (const StateStyle& state : states) {
        if (state.lane == lane)
            legend.emplace_back(QLatin1String(state.name), QLatin1String(state.colour));
    }
    return svg + Legend(legend, top);
}

QString TimelineDrawing::SignalLane(double top) const
{
    QString svg =
        Label(ChartLeft - 12, top + 16, QStringLiteral("Signal"), Ink, "text-anchor=\"end\" font-weight=\"bold\"") +
        Box(ChartLeft, top, ChartWidth, SignalHeight, "#f4f6f8");
    const auto y = [&](double dBm) {
        const double share = (SignalTopDBm - dBm) / (SignalTopDBm - SignalBottomDBm);
        return top + std::clamp(share, 0.0, 1.0) * SignalHeight;
    };
    // The bounds of "phonectl status".
    for (const auto& [dBm, word] : {std::pair(-70, "excellent"), std::pair(-85, "good"), std::pair(-100, "fair")}) {
        svg += Box(ChartLeft, y(dBm), ChartWidth, 1, Line);
        svg += Label(ChartLeft - 12, y(dBm) + 4, QStringLiteral("%1 dBm").arg(dBm), PaleInk, "text-anchor=\"end\"");
        svg += Label(LegendLeft, y(dBm) - 2, QLatin1String(word), PaleInk);
    }
    svg += Label(LegendLeft, y(-100) + 12, QStringLiteral("weak"), PaleInk);

    QString path;
    double lastTime = -1;
    const std::vector<History::Reading>& signal = history.Signal();
    for (size_t index = 0; index < signal.size();) {
        const double x = std::floor(X(signal[index].time));
        const double time = signal[index].time;
        double sum = 0;
        int count = 0;
        int low = signal[index].dBm;
        int high = low;
        for (; index < signal.size() && std::floor(X(signal[index].time)) == x; ++index, ++count) {
            sum += signal[index].dBm;
            low = std::min(low, signal[index].dBm);
            high = std::max(high, signal[index].dBm);
        }
        if (high > low)
            svg += Box(x, y(high), 1, y(low) - y(high), "#a9c6ee");
        const bool continues = !path.isEmpty() && (!reader.HasTimes() || time - lastTime < LongestSilenceS);
        path +=
            QStringLiteral("%1%2 %3 ").arg(QLatin1String(continues ? "L" : "M"), Decimal(x), Decimal(y(sum / count)));
        // Draw a single reading as a point.
        path += QStringLiteral("h1 ");
        lastTime = signal[index - 1].time;
    }
    return svg + QStringLiteral("<path d=\"%1\" fill=\"none\" stroke=\"%2\" stroke-width=\"1.6\"/>\n")
                     .arg(path, QLatin1String(Blue));
}

QString TimelineDrawing::MessageLane(double top) const
{
    QString svg =
        Label(ChartLeft - 12, top + 16, QStringLiteral("Messages"), Ink, "text-anchor=\"end\" font-weight=\"bold\"") +
        Box(ChartLeft, top, ChartWidth, LaneHeight, "#f4f6f8");
    for (const Cluster& cluster :
         Clusters({History::MessageReceived, History::MessageQueued, History::MessageSent, History::MessageLost})) {
        QMap<History::Kind, int> counts;
        for (const History::Mark* mark : cluster.marks)
            ++counts[mark->kind];
        if (counts.size() > 1)
            counts.remove(History::MessageQueued); // its result is drawn
        double x = X(cluster.marks.front()->time);
        for (auto count = counts.begin(); count != counts.end(); ++count, x += 5) {
            svg += Box(x, top + 2, 4, LaneHeight - 4, kinds[count.key()].colour,
                       QStringLiteral("%1: %2 %3")
                           .arg(Moment(cluster.marks.front()->time))
                           .arg(count.value())
                           .arg(QLatin1String(KindName(count.key()))));
        }
    }
    std::vector<std::pair<QString, QString>> legend;
    for (const History::Kind kind :
         {History::MessageQueued, History::MessageSent, History::MessageLost, History::MessageReceived})
        legend.emplace_back(QLatin1String(KindName(kind)), QLatin1String(kinds[kind].colour));
    return svg + Legend(legend, top);
}

QByteArray TimelineDrawing::Svg() const
{
    double y = HeaderHeight;
    QString lanes;
    const auto add = [&](const QString& lane, double height) {
        lanes += lane;
        y += height;
    };
    for (const History::Lane lane : {History::Service, History::GsmDaemon, History::Modem, History::SimCard})
        add(LaneOf(lane, y), LaneDistance);
    add(SignalLane(y), SignalHeight + LaneDistance - LaneHeight);
    for (const History::Lane lane : {History::Call, History::Audio})
        add(LaneOf(lane, y), LaneDistance);
    add(MessageLane(y), LaneDistance);

    // Trouble, numbered in the order of time, with its texts below.
    const double cycleTop = y;
    const double troubleTop = y + LaneDistance;
    std::vector<std::pair<Cluster, double>> places;
    for (Cluster& cluster : Clusters({History::PowerCycle}))
        places.emplace_back(std::move(cluster), cycleTop);
    for (Cluster& cluster : Clusters({History::Warning, History::Error}))
        places.emplace_back(std::move(cluster), troubleTop);
    std::stable_sort(places.begin(), places.end(), [](const auto& one, const auto& other) {
        return one.first.marks.front()->time < other.first.marks.front()->time;
    });
    for (const auto& [top, name] : {std::pair(cycleTop, "Power cycles"), std::pair(troubleTop, "Trouble")}) {
        lanes += Label(ChartLeft - 12, top + 16, QLatin1String(name), Ink, "text-anchor=\"end\" font-weight=\"bold\"") +
                 Box(ChartLeft, top, ChartWidth, LaneHeight, "#f4f6f8");
    }
    lanes +=
        Legend({{QStringLiteral("reason below"), QLatin1String(Orange)}}, cycleTop) +
        Legend({{QStringLiteral("warning"), QLatin1String(Amber)}, {QStringLiteral("error"), QLatin1String(RedTone)}},
               troubleTop);
    const double chartBottom = troubleTop + LaneHeight + 4;
    y = chartBottom + 40;

    QString marks;
    QString rows;
    int number = 0;
    for (const auto& [cluster, top] : places) {
        ++number;
        const History::Kind worst =
            (*std::max_element(cluster.marks.begin(), cluster.marks.end(), [](const auto* one, const auto* other) {
                return one->kind < other->kind;
            }))->kind;
        const QString text = ClusterText(cluster);
        const char* const colour = kinds[worst].colour;
        const auto circle = [&](double x, double middle, bool titled) {
            return QStringLiteral("<g>%1<circle cx=\"%2\" cy=\"%3\" r=\"%4\" fill=\"%5\"/>%6</g>\n")
                .arg(titled ? QStringLiteral("<title>%1: %2</title>")
                                  .arg(Xml(Moment(cluster.marks.front()->time)), Xml(Cut(text, 1000)))
                            : QString(),
                     Decimal(x), Decimal(middle), Decimal(MarkRadius + 1), QLatin1String(colour),
                     Label(x, middle + 4, QString::number(number), "#ffffff",
                           "text-anchor=\"middle\" font-size=\"10\""));
        };
        const double first = cluster.marks.front()->time;
        const double last = cluster.marks.back()->time;
        marks += Box(X(first), top + LaneHeight / 2 - 3, X(last) - X(first), 6, colour) +
                 circle((X(first) + X(last)) / 2, top + LaneHeight / 2, true);
        if (number > MostRows)
            continue;
        QString when = Moment(first);
        const bool isOneDay = Clock(first, "yyyy-MM-dd") == Clock(last, "yyyy-MM-dd");
        if (Moment(last) != when)
            when += QStringLiteral(" to ") +
                    (reader.HasTimes() ? Clock(last, isOneDay ? "HH:mm:ss" : "MM-dd HH:mm:ss") : Moment(last));
        rows += circle(ChartLeft - 20, y - 4, false) + Label(ChartLeft, y, when, PaleInk) +
                Label(RowTextLeft, y, Cut(text, MostRowLetters));
        y += RowHeight;
    }
    if (number > MostRows) {
        rows += Label(ChartLeft, y, QStringLiteral("and %1 more").arg(number - MostRows), PaleInk);
        y += RowHeight;
    }
    if (number == 0) {
        rows += Label(ChartLeft, y, QStringLiteral("No power cycle, no warning, no error."), PaleInk);
        y += RowHeight;
    }

    return (QStringLiteral("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %1 %2\" width=\"%1\" height=\"%2\" "
                           "font-family=\"sans-serif\" font-size=\"13\">\n")
                .arg(Decimal(Width), Decimal(y + 10)) +
            Box(0, 0, Width, y + 10, "#ffffff") +
            Label(20, 32, QStringLiteral("What the phone did"), Ink, "font-size=\"20\" font-weight=\"bold\"") +
            Label(250, 32, Headline(), PaleInk) + Label(20, 58, Summary()) + Axis(HeaderHeight - 8, chartBottom) +
            lanes + marks + rows + QStringLiteral("</svg>\n"))
        .toUtf8();
}

QByteArray TimelineDrawing::Html() const
{
    QString rows;
    size_t count = 0;
    for (const History::Mark& mark : history.Marks()) {
        if (mark.kind < History::PowerCycle || ++count > MostHtmlRows)
            continue;
        rows += QStringLiteral("<tr><td>%1</td><td style=\"color:%2\">%3</td><td>%4</td></tr>\n")
                    .arg(Moment(mark.time), QLatin1String(kinds[mark.kind].colour), QLatin1String(KindName(mark.kind)),
                         Xml(mark.text));
    }
    if (count > MostHtmlRows)
        rows += QStringLiteral("<tr><td></td><td></td><td>and %1 more</td></tr>\n").arg(count - MostHtmlRows);
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>What the phone did</title>\n"
           "<style>body { font: 14px sans-serif; color: #20262e; margin: 0 } svg { max-width: 100%; height: auto }"
           " table { margin: 20px; border-collapse: collapse } td { padding: 3px 14px 3px 0; vertical-align: top }"
           " td:first-child { color: #66707d; white-space: nowrap }</style>\n</head>\n<body>\n" +
           Svg() + "<table>\n" + rows.toUtf8() + "</table>\n</body>\n</html>\n";
}
