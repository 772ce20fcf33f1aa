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
    /// @param objectPath D-Bus object path under which the program logs.
    explicit LogInterface(const QString& objectPath);

    /// Writes one line, or counts it when it cannot be written at once: neither a reader that stalls nor one that is
    /// gone holds up or ends the process. The count is written, with level 1, before the next line that can be. Control
    /// characters and bytes that are not UTF-8 are shown as \\xNN, so that no text can forge a line. Levels above
    /// KOVA_LOG_LEVEL (5 when unset) are not written. May be called from any thread.
    /// @param level 1 error, 2 warning, 4 normal progress, 5 request done, 9 trace.
    /// @param text the message; a null pointer is written as an empty text.
    /// @param origin the object path that the message comes from.
    void EmitLogString(unsigned int level, const char* text, const char* origin);

private:
    std::string Line(unsigned int level, const char* text, const char* origin) const;

    std::string ownPath;
    unsigned int highestLevel;
    bool toJournal;
    std::mutex mutex; ///< of what follows
    std::shared_ptr<LogStream> stream;
    unsigned long long lostLines = 0;
};
