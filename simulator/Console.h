#pragma once

#include "Commands.h"

#include <QSocketNotifier>

/// Reads commands from a standard input that is not a terminal, one per line. The device goes on after the end of the
/// input, so that a script can start it without any.
class Console : public QObject
{
    Q_OBJECT

public:
    explicit Console(Commands& commands);

private:
    void OnReadable();
    void Run(const QByteArray& line);

    Commands& commands;
    QSocketNotifier readable;
    QByteArray pending;   ///< an unfinished line
    bool tooLong = false; ///< the unfinished line, whose beginning was dropped
};
