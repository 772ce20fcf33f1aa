#include "LogCapture.h"

#include "Log.h"

#include <utility>

namespace
{

QList<Logged> captured;

}

LogInterface* _logInterface = new LogInterface(Names::LogObject);

LogInterface::LogInterface(const QString&) {}

void LogInterface::EmitLogString(unsigned int level, const char* text, const char* origin)
{
    captured.append({level, text, origin});
}

QByteArray Logged::Prefix() const
{
    const int colon = static_cast<int>(text.indexOf(':'));
    const int bracket = static_cast<int>(text.indexOf(']'));
    return text.left(colon) + text.mid(bracket, text.indexOf("): ") + 1 - bracket);
}

QList<Logged> TakeLog()
{
    return std::exchange(captured, {});
}
