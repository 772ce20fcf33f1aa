#include "LogCapture.h"

#include "Log.h"

#include <utility>

static QList<Logged> captured;

LogInterface* _logInterface = new LogInterface(Names::LogObject);

LogInterface::LogInterface(const QString&) {}

void LogInterface::EmitLogString(unsigned int level, const char* text, const char* origin)
{
    captured.append({level, text, origin});
}

QList<Logged> TakeLog()
{
    return std::exchange(captured, {});
}
