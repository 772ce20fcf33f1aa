#include "Process.h"

#include "Log.h"
#include "StandardStreams.h"

#include <QCoreApplication>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace
{

sigset_t TerminationSignals()
{
    sigset_t termination;
    sigemptyset(&termination);
    sigaddset(&termination, SIGINT);
    sigaddset(&termination, SIGTERM);
    return termination;
}

const char* messageOrigin = nullptr;

void LogQtMessage(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (!_logInterface)
        std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
    else
        LOG_FROM(messageOrigin, type == QtDebugMsg || type == QtInfoMsg ? LogLevelTrace : LogLevelWarning, "Qt: %s",
                 message.toLocal8Bit().constData());
}

void MaskTermination(int how)
{
    const sigset_t termination = TerminationSignals();
    pthread_sigmask(how, &termination, nullptr);
}

}

void Process::Prepare(const char* logOrigin)
{
    FillClosedStreams(O_RDWR, O_RDWR);
    std::signal(SIGPIPE, SIG_IGN);
    messageOrigin = logOrigin;
    qInstallMessageHandler(LogQtMessage);
}

void Process::HoldTermination()
{
    MaskTermination(SIG_BLOCK);
    QTimer::singleShot(0, QCoreApplication::instance(), [] { MaskTermination(SIG_UNBLOCK); });
}
