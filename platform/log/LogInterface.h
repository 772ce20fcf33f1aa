#pragma once

#include <QString>

#include <memory>
#include <mutex>
#include <string>

class LogStream;

/// Client of the device's log: one line per message on standard error.
class LogInterface
{
public:
    /// @param objectPath the D-Bus object path that the client's own lines are logged under.
    explicit LogInterface(const QString& objectPath);

    /// Writes one line. A line that cannot be written at once is only counted: a reader that stalls or ends neither
    /// delays nor ends the process. The count is logged, at level 1, before the next line that is written. Control
    /// characters and invalid UTF-8 are shown as \\xNN, so that no text can forge a line. Levels above KOVA_LOG_LEVEL
    /// (5 when unset) are not written. Thread-safe.
    /// @param level 1 error, 2 warning, 4 normal progress, 5 request done, 9 trace.
    /// @param text the message; null is written as an empty text.
    /// @param origin the object path that the line is logged under.
    void EmitLogString(unsigned int level, const char* text, const char* origin);

private:
    std::string Line(unsigned int level, const char* text, const char* origin) const;

    std::string ownPath;
    unsigned int highestLevel;
    bool toJournal;
    std::mutex mutex; ///< guards the members below
    std::shared_ptr<LogStream> stream;
    unsigned long long lostLines = 0;
};
