#pragma once

#include <QException>

// Code that depends on the major version of Qt belongs here and nowhere else.

namespace QtConcurrent
{
// Qt 6 has removed this name. Qt 5.15 deprecates it and defines the same alias.
using Exception = QException;
}
