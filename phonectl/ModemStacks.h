#pragma once

#include <QString>
#include <QStringList>

/// The stock modem stacks on the system bus, and the modems that they know. None is started.
struct ModemStacks {
    ModemStacks();

    QString problem; ///< why the system bus cannot be asked
    QStringList names;
    QStringList modems; ///< one description each
};
