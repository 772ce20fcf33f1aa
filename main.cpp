#include "BusGuard.h"
#include "Log.h"
#include "PhoneManager.h"
#include "PhoneManagerAdaptor.h"
#include "Process.h"

#include <QCoreApplication>
#include <QDBusConnection>

#include <csignal>
#include <cstdio>

Q_DECL_EXPORT LogInterface* _logInterface = nullptr;

namespace
{

constexpr int StartFailed = -1;

// The application and the log client are never deleted, on purpose: static objects log while the process exits.
QCoreApplication* application = nullptr;
PhoneManager* phoneManager = nullptr;
PhoneManagerAdaptor* adaptor = nullptr;

void OnTerminationSignal(int signum)
{
    if (signum == SIGINT || signum == SIGTERM)
        QCoreApplication::exit(0);
}

}

int main(int argc, char** argv)
{
    Process::Prepare(Names::PhoneObject);
    if (argc > 1) {
        std::fprintf(stderr, "phonemanager: unexpected argument '%s': the service takes none\n", argv[1]);
        return StartFailed;
    }

    application = new QCoreApplication(argc, argv);
    _logInterface = new LogInterface(Names::LogObject);
    LOG(LogLevelProgress, "Starting Phone Manager...");

    Process::HoldTermination();
    if (std::signal(SIGINT, OnTerminationSignal) == SIG_ERR)
        LOG(LogLevelWarning, "Can't catch SIGINT");
    if (std::signal(SIGTERM, OnTerminationSignal) == SIG_ERR)
        LOG(LogLevelWarning, "Can't catch SIGTERM");

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        LOG(LogLevelError, "DBUS: Can't connect session bus");
        std::puts("DBUS: Can't connect session bus");
        return StartFailed;
    }
    const BusGuard busGuard(bus);

    phoneManager = new PhoneManager;
    if (!phoneManager->IsValid() || !phoneManager->IsInitialized()) {
        LOG(LogLevelError, "Impossible to crate a valid PhoneManager");
        return StartFailed;
    }

    // Create the adaptor before claiming the name. Qt delivers no call before the event loop runs.
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
