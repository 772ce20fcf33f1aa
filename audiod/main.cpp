// kova-audiod: the device's three audio services on a stock sound server.

#include "AudioInCtl.h"
#include "AudioInCtlAdaptor.h"
#include "AudioLog.h"
#include "AudioOutCtl.h"
#include "AudioOutCtlAdaptor.h"
#include "CallAudioRoute.h"
#include "Capture.h"
#include "Daemon.h"
#include "DefaultDevice.h"
#include "LoopbackRoute.h"
#include "Process.h"
#include "SignalInput.h"
#include "SoundManager.h"
#include "SoundManagerAdaptor.h"
#include "SoundServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>

#include <algorithm>
#include <memory>

Q_DECL_EXPORT LogInterface* _logInterface = nullptr;

namespace
{

struct Export {
    const char* service;
    const char* object;
    AudioService* contract;
};

bool Register(QDBusConnection& bus, const Export& service)
{
    // Register the object before claiming the name.
    if (bus.registerObject(QLatin1String(service.object), service.contract, QDBusConnection::ExportAdaptors) &&
        bus.registerService(QLatin1String(service.service)))
        return true;
    AUDIO_LOG(LogLevelError, "DBUS: Can't register service [%s]: %s", service.service,
              bus.lastError().isValid() ? qPrintable(bus.lastError().message()) : "another program has the name");
    return false;
}

int Serve(const QString& modemSource, const QString& modemSink, int signalInput)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!Daemon::RequireBus(bus, Names::SoundManagerObject))
        return Daemon::ExitStatusFailed;

    SoundServer server;
    std::unique_ptr<VoiceRoute> route;
    if (modemSource.isEmpty())
        route = std::make_unique<CallAudioRoute>();
    else
        route = std::make_unique<LoopbackRoute>(server, modemSource, modemSink);
    DefaultDevice sink(server, DeviceKind::Sink);
    DefaultDevice source(server, DeviceKind::Source);
    Capture capture(server);

    SoundManager soundManager(*route);
    AudioOutCtl outputControl(sink, *route);
    AudioInCtl inputControl(source, capture);
    // The objects own their adaptors.
    new SoundManagerAdaptor(&soundManager);
    new AudioOutCtlAdaptor(&outputControl);
    new AudioInCtlAdaptor(&inputControl);

    const Export exports[] = {
        {Names::AudioOutCtlService, Names::AudioOutCtlObject, &outputControl},
        {Names::AudioInCtlService, Names::AudioInCtlObject, &inputControl},
        {Names::SoundManagerService, Names::SoundManagerObject, &soundManager},
    };
    if (!std::all_of(std::begin(exports), std::end(exports), [&](const Export& one) { return Register(bus, one); }))
        return Daemon::ExitStatusFailed;

    Daemon::WhenSignalled(signalInput, route.get(), [&route] {
        // Undo the route of a call first. A second signal ends the process at once.
        const bool inCall = route->Wanted().call;
        route->SetWanted({});
        if (inCall)
            route->WhenUpdated(&QCoreApplication::quit);
        else
            QCoreApplication::quit();
    });

    // Connect only after claiming the names: another process of this program may still use the loopbacks.
    server.Connect();
    AUDIO_LOG(LogLevelProgress, "Audio services running, voice route: %s",
              modemSource.isEmpty() ? "callaudiod" : qPrintable(modemSource + QLatin1String(", ") + modemSink));
    const int status = QCoreApplication::exec();

    capture.Stop();
    // Disconnect while the receivers of pending answers still exist.
    server.Close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    AUDIO_LOG(LogLevelProgress, "Audio services terminated");
    return status;
}

}

int main(int argc, char** argv)
{
    Process::Prepare(Names::SoundManagerObject);
    const int signalInput = HoldSignals({SIGINT, SIGTERM});
    // Otherwise libpulse asks the X server for the sound server's address, and waits for its answer.
    qunsetenv("DISPLAY");
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kova-audiod"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KOVA_VERSION));

    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral(
        "The audio services of a phone on a stock sound server. With the names of the modem's sound card, "
        "a call's voice is looped to the default devices; without, callaudiod routes it."));
    const QCommandLineOption source(QStringLiteral("modem-source"),
                                    QStringLiteral("Source from which the far end is heard."), QStringLiteral("NAME"));
    const QCommandLineOption sink(QStringLiteral("modem-sink"),
                                  QStringLiteral("Sink on which the far end hears the user."), QStringLiteral("NAME"));
    options.addOptions({source, sink});
    Daemon::ParseOptions(options);
    if (!options.positionalArguments().isEmpty() || options.value(source).isEmpty() != options.value(sink).isEmpty()) {
        Daemon::RefuseUsage(
            QStringLiteral("takes both --modem-source NAME and --modem-sink NAME, or neither; see --help"));
    }

    _logInterface = new LogInterface(QLatin1String(Names::LogObject)); // never deleted: Qt may log to the very end
    return Serve(options.value(source), options.value(sink), signalInput);
}
