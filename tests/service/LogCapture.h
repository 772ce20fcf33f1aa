#pragma once

#include <QByteArray>
#include <QList>

/// One message that a unit test's program logged, as it was handed to the device's log.
struct Logged {
    unsigned int level;
    QByteArray text;
    QByteArray origin;

    /// What stands before the line's message: "[file:LINE] function: ", without the number.
    QByteArray Prefix() const;
    QByteArray Message() const { return text.mid(text.indexOf("): ") + 3); }
};

/// @return what was logged since the last time. The capture stands in for the log library in the test's program.
QList<Logged> TakeLog();
