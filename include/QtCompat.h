#pragma once

#include <QException>

// What differs between Qt 5.15 and Qt 6 stands here and nowhere else.

namespace QtConcurrent
{
// Gone in Qt 6, and deprecated in Qt 5.15, where it is this very alias.
using Exception = QException;
}
