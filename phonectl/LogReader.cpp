#include "LogReader.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

namespace
{

constexpr double MicrosecondsPerSecond = 1e6;
constexpr int SecondsPerDay = 86400;
/// The rest of a longer line is left out: a file that is no log may be one endless line.
constexpr size_t LongestLine = 65536;

bool IsDigit(char character)
{
    return character >= '0' && character <= '9';
}

/// Removes digits from the text. @return their number, or -1 if the text does not begin with so many digits.
int TakeNumber(std::string_view& text, size_t digits)
{
    if (text.size() < digits || !std::all_of(text.begin(), text.begin() + static_cast<ptrdiff_t>(digits), IsDigit))
        return -1;
    int value = 0;
    for (size_t place = 0; place < digits; ++place)
        value = value * 10 + (text[place] - '0');
    text.remove_prefix(digits);
    return value;
}

bool Take(std::string_view& text, char wanted)
{
    const bool taken = !text.empty() && text.front() == wanted;
    if (taken)
        text.remove_prefix(1);
    return taken;
}

/// "14:03:22" and a fraction. @return seconds of the day, or -1.
double TakeClock(std::string_view& text)
{
    const int hours = TakeNumber(text, 2);
    const int minutes = Take(text, ':') ? TakeNumber(text, 2) : -1;
    const int seconds = Take(text, ':') ? TakeNumber(text, 2) : -1;
    if (hours < 0 || minutes < 0 || seconds < 0)
        return -1;
    double fraction = 0;
    if (Take(text, '.') || Take(text, ',')) {
        for (double unit = 0.1; !text.empty() && IsDigit(text.front()); unit /= 10) {
            fraction += unit * (text.front() - '0');
            text.remove_prefix(1);
        }
    }
    return hours * 3600 + minutes * 60 + seconds + fraction;
}

/// Seconds from 1970 to the beginning of a day of the Gregorian calendar, or -1 when there is no such day.
double DaySeconds(int year, int month, int day)
{
    static const qint64 start = QDate(1970, 1, 1).toJulianDay();
    const QDate date(year, month, day);
    return date.isValid() ? static_cast<double>((date.toJulianDay() - start) * SecondsPerDay) : -1;
}

double LocalSeconds(double sinceEpoch)
{
    const qint64 seconds = static_cast<qint64>(sinceEpoch);
    return sinceEpoch + QDateTime::fromSecsSinceEpoch(seconds).offsetFromUtc();
}

/// @return where "L2 /com/..." begins, after what the journal or syslog has put in front.
size_t FindEntry(std::string_view line)
{
    for (size_t place = 0; place + 4 < line.size(); ++place) {
        place = line.find('L', place);
        if (place == std::string_view::npos || place + 4 >= line.size())
            break;
        if (IsDigit(line[place + 1]) && line[place + 2] == ' ' && line[place + 3] == '/' &&
            (place == 0 || line[place - 1] == ' ' || line[place - 1] == '>'))
            return place;
    }
    return std::string_view::npos;
}

}

bool LogReader::ReadLine()
{
    line.clear();
    int character = getc_unlocked(file);
    if (character == EOF)
        return false;
    for (; character != EOF && character != '\n'; character = getc_unlocked(file)) {
        if (line.size() < LongestLine)
            line.push_back(static_cast<char>(character));
    }
    while (!line.empty() && line.back() == '\r')
        line.pop_back();
    return true;
}

bool LogReader::Next(LogEntry& entry)
{
    while (ReadLine()) {
        ++lines;
        if (Parse(line, entry))
            return true;
        ++foreignLines;
    }
    return false;
}

bool LogReader::Parse(std::string_view line, LogEntry& entry)
{
    bool hasTime = false;
    if (!line.empty() && line.front() == '{') {
        const QJsonObject object =
            QJsonDocument::fromJson(QByteArray(line.data(), static_cast<int>(line.size()))).object();
        text = object.value(QLatin1String("MESSAGE")).toString().toStdString();
        line = text;
        const qint64 microseconds = object.value(QLatin1String("__REALTIME_TIMESTAMP")).toString().toLongLong(&hasTime);
        entry.time = LocalSeconds(static_cast<double>(microseconds) / MicrosecondsPerSecond);
    }
    const size_t start = FindEntry(line);
    if (start == std::string_view::npos)
        return false;
    entry.level = static_cast<unsigned>(line[start + 1] - '0');
    entry.message = line.substr(start);
    // "[file:line] signature: message"; no signature holds a colon before a blank.
    const size_t place = entry.message.find("] ");
    const size_t signatureEnd = place == std::string_view::npos ? place : entry.message.find(": ", place);
    if (signatureEnd == std::string_view::npos)
        return false;
    entry.message.remove_prefix(signatureEnd + 2);

    hasTime = hasTime || ReadTime(line.substr(0, start), entry.time);
    hasTimes = hasTimes || hasTime;
    if (!hasTime)
        entry.time = static_cast<double>(lines);
    return true;
}

bool LogReader::ReadTime(std::string_view prefix, double& time)
{
    static constexpr std::array<std::string_view, 12> months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    // The date may follow a weekday.
    if (prefix.size() > 4 && std::isalpha(static_cast<unsigned char>(prefix[0])) && prefix[3] == ' ' &&
        IsDigit(prefix[4]) && prefix.find('-') == 8)
        prefix.remove_prefix(4);

    std::string_view rest = prefix;
    if (const int year = TakeNumber(rest, 4); year >= 0 && Take(rest, '-')) {
        const int month = TakeNumber(rest, 2);
        const int day = Take(rest, '-') ? TakeNumber(rest, 2) : -1;
        const double start = DaySeconds(year, month, day);
        const double clock = Take(rest, 'T') || Take(rest, ' ') ? TakeClock(rest) : -1;
        time = start + clock;
        return start >= 0 && clock >= 0;
    }

    rest = prefix;
    const auto month = std::find(months.begin(), months.end(), rest.substr(0, 3));
    if (month != months.end() && rest.size() > 7) {
        rest.remove_prefix(4);
        const int day = Take(rest, ' ') ? TakeNumber(rest, 1) : TakeNumber(rest, 2);
        const double clock = Take(rest, ' ') ? TakeClock(rest) : -1;
        // Assume the latest year in which the day is not in the future.
        const int number = static_cast<int>(month - months.begin()) + 1;
        const bool isToCome = QDate(now.date().year(), number, day) > now.date();
        const double start = DaySeconds(now.date().year() - (isToCome ? 1 : 0), number, day);
        time = start + clock;
        return start >= 0 && clock >= 0;
    }

    const size_t end = prefix.find('.');
    if (end != std::string_view::npos && end > 0 && end < 12 &&
        std::all_of(prefix.begin(), prefix.begin() + static_cast<ptrdiff_t>(end), IsDigit)) {
        time = LocalSeconds(std::strtod(std::string(prefix.substr(0, prefix.find(' '))).c_str(), nullptr));
        return true;
    }
    return false;
}
