#pragma once

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <optional>

/// One command of a command line, as ITU-T V.250, 5.4, has them: "D+49301;", "+CREG=2", "+CSQ".
struct AtCommand {
    enum Operation { Execute, Read, Test, Set };

    QString name; ///< in upper case: "D", "&C", "+CREG"
    Operation operation = Execute;
    QStringList parameters; ///< of a set command, without quotes; the number of a basic one

    /// The parameter as a number, or the other one when it is left out or none.
    int Number(int index, int otherwise) const;
};

/// Reads a command line without its "AT". @return nothing when it is no command line.
std::optional<QList<AtCommand>> ParseAtLine(const QByteArray& line);

/// Takes lines, and data behind a prompt, out of what comes in on a serial port.
class AtInput
{
public:
    enum Kind { CommandLine, Data, Aborted, TooLong };
    struct Item {
        Kind kind;
        QByteArray bytes;
    };

    void Append(const QByteArray& bytes);
    /// @param data whether data are expected, up to Ctrl-Z, rather than a command line.
    std::optional<Item> Take(bool data);
    void Clear();

private:
    QByteArray unread;
    QByteArray line;
    bool tooLong = false;
};
