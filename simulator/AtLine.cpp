#include "AtLine.h"

namespace
{

constexpr int MaxLine = 2048;        ///< bytes of a command line or of data
constexpr int MaxUnread = 64 * 1024; ///< bytes; more are lost, as on a line without flow control
constexpr char CtrlZ = 0x1a;
constexpr char EscapeKey = 0x1b;
constexpr char Backspace = 0x08;

bool IsLetter(QChar c)
{
    return (c >= QLatin1Char('A') && c <= QLatin1Char('Z')) || (c >= QLatin1Char('a') && c <= QLatin1Char('z'));
}

bool IsDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

/// Splits at separators outside quotes.
QStringList Split(const QString& text, QChar separator)
{
    QStringList parts{QString()};
    bool quoted = false;
    for (const QChar c : text) {
        if (c == QLatin1Char('"'))
            quoted = !quoted;
        if (c == separator && !quoted)
            parts.append(QString());
        else
            parts.last().append(c);
    }
    return parts;
}

/// Parses an extended command, such as "+CREG=2".
std::optional<AtCommand> ParseExtended(const QString& text)
{
    AtCommand command;
    int end = 1;
    while (end < text.size() && (IsLetter(text.at(end)) || IsDigit(text.at(end))))
        ++end;
    command.name = text.left(end).toUpper();
    const QString rest = text.mid(end);
    if (rest.isEmpty()) {
        command.operation = AtCommand::Execute;
    } else if (rest == QLatin1String("?")) {
        command.operation = AtCommand::Read;
    } else if (rest == QLatin1String("=?")) {
        command.operation = AtCommand::Test;
    } else if (rest.startsWith(QLatin1Char('='))) {
        command.operation = AtCommand::Set;
        command.parameters = Split(rest.mid(1), QLatin1Char(','));
        for (QString& parameter : command.parameters)
            parameter = parameter.trimmed().remove(QLatin1Char('"'));
    } else {
        return std::nullopt;
    }
    return command;
}

}

int AtCommand::Number(int index, int defaultValue) const
{
    bool ok = false;
    const int number = parameters.value(index).toInt(&ok);
    return ok ? number : defaultValue;
}

std::optional<QList<AtCommand>> ParseAtLine(const QByteArray& line)
{
    QList<AtCommand> commands;
    QString rest = QString::fromUtf8(line).trimmed();
    while (!rest.isEmpty()) {
        const QChar first = rest.at(0);
        if (first == QLatin1Char(';') || first.isSpace()) {
            rest.remove(0, 1);
        } else if (first == QLatin1Char('D') || first == QLatin1Char('d')) {
            // The number extends to the semicolon or the end of the line.
            const QString dialled = rest.section(QLatin1Char(';'), 0, 0);
            const bool isVoice = dialled.size() < rest.size();
            commands.append({QStringLiteral("D"),
                             AtCommand::Set,
                             {dialled.mid(1).trimmed(), isVoice ? QStringLiteral(";") : QString()}});
            rest.remove(0, dialled.size() + (isVoice ? 1 : 0));
        } else if (IsLetter(first) || first == QLatin1Char('&')) {
            const int name = first == QLatin1Char('&') ? 2 : 1;
            int end = name;
            while (end < rest.size() && IsDigit(rest.at(end)))
                ++end;
            AtCommand command{rest.left(name).toUpper(), AtCommand::Execute, {}};
            if (end > name)
                command.parameters.append(rest.mid(name, end - name));
            commands.append(command);
            rest.remove(0, end);
        } else if (QStringLiteral("+^%$*#").contains(first)) {
            const QString text = Split(rest, QLatin1Char(';')).first();
            const std::optional<AtCommand> command = ParseExtended(text.trimmed());
            if (!command)
                return std::nullopt;
            commands.append(*command);
            rest.remove(0, text.size());
        } else {
            return std::nullopt;
        }
    }
    return commands;
}

void AtInput::Append(const QByteArray& bytes)
{
    unread += bytes.left(MaxUnread - static_cast<int>(unread.size()));
}

std::optional<AtInput::Item> AtInput::Take(bool data)
{
    for (int next = 0; next < unread.size(); ++next) {
        const char c = unread.at(next);
        const bool ends = data ? c == CtrlZ || c == EscapeKey : c == '\r' || c == '\n';
        if (ends && (data || !line.isEmpty() || tooLong)) {
            const Item item{tooLong ? TooLong : data && c == EscapeKey ? Aborted : data ? Data : CommandLine, line};
            unread.remove(0, next + 1);
            line.clear();
            tooLong = false;
            return item;
        }
        if (c == Backspace)
            line.chop(1);
        else if (line.size() == MaxLine)
            tooLong = true;
        else if (static_cast<uchar>(c) >= ' ') // ignore control characters within a line
            line.append(c);
    }
    unread.clear();
    return std::nullopt;
}

void AtInput::Clear()
{
    unread.clear();
    line.clear();
    tooLong = false;
}
