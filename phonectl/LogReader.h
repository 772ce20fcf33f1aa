#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <cstdio>
#include <string>
#include <string_view>

/// One line of the phone service's log.
struct LogEntry {
    double time = 0; ///< seconds of the local clock since 1970; without a time in the line, the number of the line
    unsigned level = 0;
    std::string_view message; ///< without source place and function; valid until the next line is read
};

/// Reads the service's log as the service writes it to a terminal, a file or the journal, and as journalctl prints it
/// (cat, short, short-full, short-iso, short-precise, short-unix, json).
class LogReader
{
public:
    /// @param file remains the caller's; Next() reads it to its end.
    explicit LogReader(std::FILE* file) : file(file) {}
    Q_DISABLE_COPY(LogReader)

    /// Reads the service's next line, skipping others. @return false at the end of the file.
    bool Next(LogEntry& entry);

    qint64 Lines() const { return lines; }
    qint64 ForeignLines() const { return foreignLines; }
    bool HasTimes() const { return hasTimes; }

private:
    bool ReadLine();
    bool Parse(std::string_view line, LogEntry& entry);
    bool ReadTime(std::string_view prefix, double& time);

    std::FILE* const file;
    std::string line; ///< as it was read last, without its end
    std::string text; ///< of a message in JSON
    qint64 lines = 0;
    qint64 foreignLines = 0;
    bool hasTimes = false;
    const QDateTime now = QDateTime::currentDateTime();
};
