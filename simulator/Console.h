#pragma once

#include "Commands.h"

#include <QSocketNotifier>

/// Reads commands from standard input that is no terminal, one a line. The end of input does not end the device: a
/// script may start it without any.
class Console : public QObject
{
    Q_OBJECT

public:
    explicit Console(Commands& commands);

private:
    void OnReadable();
    void Take(const QByteArray& line);

    Commands& commands;
    QSocketNotifier readable;
    QByteArray pending;   ///< the beginning of a line whose end has not come
    bool tooLong = false; ///< the pending line; its beginning is gone
};
