#pragma once

#include <QString>
#include <QStringList>

/// The stock modem stacks on the system bus and their modems. Starts none.
struct ModemStacks {
    ModemStacks();

    QString problem; ///< why the system bus cannot be used; empty if it can
    QStringList names;
    QStringList modems; ///< a description of each
};
