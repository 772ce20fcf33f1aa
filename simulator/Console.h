#pragma once

#include "Commands.h"

#include <QSocketNotifier>

/// Reads commands from standard input, one a line; the end of input does not end the device.
class Console : public QObject
{
    Q_OBJECT

public:
    explicit Console(Commands& commands);

private:
    void OnReadable();
    void Prompt() const;

    Commands& commands;
    QSocketNotifier readable;
    QByteArray pending; ///< the beginning of a line whose end has not come
    const bool onTerminal;
};
