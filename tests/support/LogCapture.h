#pragma once

#include <QByteArray>
#include <QList>

/// One line that a unit test's program logged, as it was handed to the device's log.
struct Logged {
    unsigned int level;
    QByteArray text;
    QByteArray origin;

    /// What stands before the line's message: "[file] function", without the line's number.
    QByteArray Prefix() const
    {
        const int colon = static_cast<int>(text.indexOf(':'));
        const int bracket = static_cast<int>(text.indexOf(']'));
        return text.left(colon) + text.mid(bracket, text.indexOf("): ") + 1 - bracket);
    }
    QByteArray Message() const { return text.mid(text.indexOf("): ") + 3); }
};

/// @return what was logged since the last time. The capture stands in for the log library in the test's program.
QList<Logged> TakeLog();
