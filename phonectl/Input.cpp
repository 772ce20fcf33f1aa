#include "Input.h"

#include "Output.h"

#include <QFile>

#include <algorithm>
#include <termios.h>
#include <unistd.h>

namespace
{

/// 255 parts of 153 characters: the longest message that GSM can carry.
constexpr int LongestText = 39015;
constexpr int LongestUtf8 = 4;
/// RFC 3966, section 3: "visual-separator".
constexpr QLatin1String VisualSeparators("-.()");
constexpr int LongestApn = 100;
constexpr int LongestPassword = 1000;

void RemoveLineEnd(QByteArray& line)
{
    for (const char end : {'\n', '\r'}) {
        if (line.endsWith(end))
            line.chop(1);
    }
}

/// The first line of a file; "-" is standard input.
QString FirstLine(const QString& path)
{
    QFile file(path);
    const bool opened =
        path == QLatin1String("-") ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly);
    QByteArray line = opened ? file.readLine(LongestPassword) : QByteArray();
    if (!opened || file.error() != QFileDevice::NoError)
        throw Failure{ExitUsage, QStringLiteral("--password-file \"%1\": %2").arg(path, file.errorString())};
    RemoveLineEnd(line);
    if (line.isEmpty())
        throw Failure{ExitUsage, QStringLiteral("--password-file \"%1\": its first line is empty").arg(path)};
    return FromUtf8(line, QStringLiteral("the password"));
}

/// Reads a line from the terminal without showing it.
QString AskUnseen()
{
    QFile terminal(QStringLiteral("/dev/tty"));
    termios shown = {};
    if (!terminal.open(QIODevice::ReadWrite | QIODevice::Unbuffered) || tcgetattr(terminal.handle(), &shown) != 0)
        throw Failure{ExitUsage, QStringLiteral("--ask-password: there is no terminal to ask on; --password-file reads "
                                                "from a file")};
    termios unseen = shown;
    unseen.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    // Ctrl-C must not end the program before echo is restored. Let it end the line instead.
    unseen.c_lflag &= ~static_cast<tcflag_t>(ISIG);
    unseen.c_cc[VEOL] = shown.c_cc[VINTR];
    tcsetattr(terminal.handle(), TCSAFLUSH, &unseen);
    terminal.write("Password: ");
    char typed[LongestPassword];
    const ssize_t size = read(terminal.handle(), typed, sizeof typed);
    QByteArray line(typed, static_cast<int>(std::max<ssize_t>(0, size)));
    tcsetattr(terminal.handle(), TCSAFLUSH, &shown);
    terminal.write("\n");
    if (line.endsWith(static_cast<char>(shown.c_cc[VINTR])))
        throw Failure{ExitInterrupted, QStringLiteral("interrupted; nothing was asked for")};
    RemoveLineEnd(line);
    return FromUtf8(line, QStringLiteral("the password"));
}

}

QString FromUtf8(const QByteArray& bytes, const QString& what)
{
    const QString text = QString::fromUtf8(bytes);
    if (bytes.contains('\0') || text.contains(QChar::ReplacementCharacter))
        throw Failure{ExitUsage, what + QStringLiteral(" is not text in UTF-8")};
    return text;
}

QString CheckedNumber(const QString& number, const Arguments& arguments)
{
    if (arguments.Has(OptionRaw))
        return number;
    QString dialled;
    for (const QChar character : number) {
        const bool separates = character.isSpace() || VisualSeparators.contains(character);
        const bool allowed = (character >= QLatin1Char('0') && character <= QLatin1Char('9')) ||
                             character == QLatin1Char('*') || character == QLatin1Char('#') ||
                             (character == QLatin1Char('+') && dialled.isEmpty());
        if (allowed)
            dialled += character;
        else if (!separates)
            throw Failure{ExitUsage, QStringLiteral("NUMBER \"%1\": '%2' is not allowed in a number (digits, * and #, "
                                                    "one + in front); --raw passes it on unchanged")
                                         .arg(number, character)};
    }
    if (dialled.isEmpty() || dialled == QLatin1String("+"))
        throw Failure{ExitUsage, QStringLiteral("NUMBER \"%1\" is empty").arg(number)};
    // Domestic callers dial the 0 in parentheses, in place of the country code.
    if (dialled.startsWith(QLatin1Char('+')) && number.contains(QLatin1String("(0)")))
        throw Failure{ExitUsage,
                      QStringLiteral("NUMBER \"%1\": leave out \"(0)\", which is not dialled after a +").arg(number)};
    return dialled;
}

QString MessageText(const QString& argument)
{
    QString text = argument;
    if (argument.isNull() || argument == QLatin1String("-")) {
        if (isatty(STDIN_FILENO))
            PrintLine(stderr, QStringLiteral("Type the message. Ctrl-D on an empty line ends it, Ctrl-C discards it."));
        QFile input;
        if (!input.open(stdin, QIODevice::ReadOnly))
            throw Failure{ExitUsage, QStringLiteral("TEXT: standard input: ") + input.errorString()};
        QByteArray bytes = input.read(LongestText * LongestUtf8 + 1);
        RemoveLineEnd(bytes);
        text = FromUtf8(bytes, QStringLiteral("TEXT"));
    }
    if (text.isEmpty())
        throw Failure{ExitUsage, QStringLiteral("TEXT is empty")};
    if (text.size() > LongestText)
        throw Failure{ExitUsage,
                      QStringLiteral("TEXT is longer than the %1 characters that a message can have").arg(LongestText)};
    return text;
}

QString CheckedApn(const QString& apn)
{
    const auto unfit = [](QChar character) { return character.isSpace() || !character.isPrint(); };
    if (apn.isEmpty() || apn.size() > LongestApn || std::any_of(apn.begin(), apn.end(), unfit))
        throw Failure{
            ExitUsage,
            QStringLiteral("APN \"%1\": give a name of 1 to %2 characters without spaces").arg(apn).arg(LongestApn)};
    return apn;
}

QString Password(const QString& argument, const Arguments& arguments)
{
    const bool fromFile = arguments.Has(OptionPasswordFile);
    const bool asked = arguments.Has(OptionAskPassword);
    if ((fromFile ? 1 : 0) + (asked ? 1 : 0) + (argument.isEmpty() ? 0 : 1) > 1)
        throw Failure{ExitUsage, QStringLiteral("PASSWORD, --password-file and --ask-password: give one of them")};
    if ((fromFile || asked) && arguments.positional.size() < 2)
        throw Failure{ExitUsage, QStringLiteral("USER is missing: a password needs one")};
    return fromFile ? FirstLine(arguments.Value(OptionPasswordFile)) : asked ? AskUnseen() : argument;
}
