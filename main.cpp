#include "Log.h"
#include "PhoneManager.h"
#include "PhoneManagerAdaptor.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QTimer>

#include <csignal>
#include <cstdio>

Q_DECL_EXPORT LogInterface* _logInterface = nullptr;

namespace
{

constexpr int StartFailed = -1;

// On purpose neither the application nor the log client is ever deleted: static objects log while the process exits.
QCoreApplication* application = nullptr;
PhoneManager* phoneManager = nullptr;
PhoneManagerAdaptor* adaptor = nullptr;

void OnTerminationSignal(int signum)
{
    if (signum == SIGINT || signum == SIGTERM)
        QCoreApplication::exit(0);
}

sigset_t TerminationSignals()
{
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGINT);
    sigaddset(&stopping, SIGTERM);
    return stopping;
}

}

int main(int argc, char** argv)
{
    application = new QCoreApplication(argc, argv);
    _logInterface = new LogInterface(Names::LogObject);
    LOG(LogLevelProgress, "Starting Phone Manager...");

    if (std::signal(SIGINT, OnTerminationSignal) == SIG_ERR)
        LOG(LogLevelWarning, "Can't catch SIGINT");
    if (std::signal(SIGTERM, OnTerminationSignal) == SIG_ERR)
        LOG(LogLevelWarning, "Can't catch SIGTERM");
    // Without an event loop to end, the handler would do nothing and the request to stop be lost: it waits for the
    // loop.
    const sigset_t terminationSignals = TerminationSignals();
    pthread_sigmask(SIG_BLOCK, &terminationSignals, nullptr);

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        LOG(LogLevelError, "DBUS: Can't connect session bus");
        std::puts("DBUS: Can't connect session bus");
        return StartFailed;
    }

    phoneManager = new PhoneManager;
    if (!phoneManager->IsValid() || !phoneManager->IsInitialized()) {
        LOG(LogLevelError, "Impossible to crate a valid PhoneManager");
        return StartFailed;
    }

    // The adaptor comes before the name: who sees the name on the bus finds the whole interface.
    adaptor = new PhoneManagerAdaptor(phoneManager);
    if (!bus.registerService(Names::PhoneService)) {
        LOG(LogLevelError, "DBUS: Can't register service [%s]", Names::PhoneService);
        return StartFailed;
    }
    if (!bus.registerObject(Names::PhoneObject, phoneManager, QDBusConnection::ExportAdaptors)) {
        LOG(LogLevelError, "DBUS: Can't register object [%s]", Names::PhoneObject);
        return StartFailed;
    }

    LOG(LogLevelProgress, "Phone Manager running");
    QTimer::singleShot(0, application, [&] { pthread_sigmask(SIG_UNBLOCK, &terminationSignals, nullptr); });
    QCoreApplication::exec();

    if (adaptor) {
        LOG(LogLevelProgress, "Gracefully stop PhoneManager Adapter...");
        delete adaptor;
        adaptor = nullptr;
    }
    if (phoneManager) {
        LOG(LogLevelProgress, "Gracefully stop PhoneManager...");
        delete phoneManager;
        phoneManager = nullptr;
    }
    LOG(LogLevelProgress, "Succesfully terminated");
    return 0;
}
