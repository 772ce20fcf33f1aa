#pragma once

#include "Commands.h"

#include <QSocketNotifier>

/// Reads commands from standard input, one a line, with a prompt on a terminal. The end of input ends the device on a
/// terminal only: a device that a script started without input lives on.
class Console : public QObject
{
    Q_OBJECT

public:
    explicit Console(Commands& commands);

    /// Shows the prompt again, below what was printed meanwhile.
    void Prompt() const;

private:
    void OnReadable();
    void Take(const QByteArray& line);

    Commands& commands;
    QSocketNotifier readable;
    QByteArray pending;   ///< the beginning of a line whose end has not come
    bool tooLong = false; ///< the pending line; its beginning is gone
    const bool onTerminal;
};
