#pragma once

#include <QByteArray>
#include <QList>

/// One line that was passed to the device's log in a test's own process.
struct Logged {
    unsigned int level;
    QByteArray text;
    QByteArray origin;

    /// The part before the message, without the line number: "[file] function".
    QByteArray Prefix() const
    {
        const int colon = static_cast<int>(text.indexOf(':'));
        const int bracket = static_cast<int>(text.indexOf(']'));
        return text.left(colon) + text.mid(bracket, text.indexOf("): ") + 1 - bracket);
    }
    QByteArray Message() const { return text.mid(text.indexOf("): ") + 3); }
};

/// Returns and forgets the lines logged so far. Programs that link this have it instead of the log library.
QList<Logged> TakeLog();
