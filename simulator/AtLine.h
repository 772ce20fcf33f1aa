#pragma once

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <optional>

/// One command of a command line (ITU-T V.250, 5.4), such as "D+49301;", "+CREG=2" or "+CSQ".
struct AtCommand {
    enum Operation { Execute, Read, Test, Set };

    QString name; ///< in upper case: "D", "&C", "+CREG"
    Operation operation = Execute;
    QStringList parameters; ///< of a set command, without quotes; the number of a basic command

    /// @return the parameter as a number, or the default if it is left out or not a number.
    int Number(int index, int defaultValue) const;
};

/// Parses a command line without its "AT". @return nothing if it is malformed.
std::optional<QList<AtCommand>> ParseAtLine(const QByteArray& line);

/// Splits the input of a serial port into command lines and data.
class AtInput
{
public:
    enum Kind { CommandLine, Data, Aborted, TooLong };
    struct Item {
        Kind kind;
        QByteArray bytes;
    };

    void Append(const QByteArray& bytes);
    /// @param data expect data up to Ctrl-Z instead of a command line.
    std::optional<Item> Take(bool data);
    void Clear();

private:
    QByteArray unread;
    QByteArray line;
    bool tooLong = false;
};
