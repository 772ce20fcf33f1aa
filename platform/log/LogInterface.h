#pragma once

#include <QString>

/// Client of the device's log: one line per message on standard error.
class LogInterface
{
public:
    /// @param objectPath D-Bus object path under which the program logs.
    explicit LogInterface(const QString& objectPath);

    /// Writes one line. Control characters and bytes that are not UTF-8 are shown as \\xNN, so that no text can forge a
    /// line. Levels above KOVA_LOG_LEVEL (5 when unset) are not written. May be called from any thread.
    /// @param level 1 error, 2 warning, 4 normal progress, 5 request done, 9 trace.
    /// @param text the message; a null pointer is written as an empty text.
    /// @param origin the object path that the message comes from.
    void EmitLogString(unsigned int level, const char* text, const char* origin);

private:
    unsigned int highestLevel;
    bool toJournal;
};
