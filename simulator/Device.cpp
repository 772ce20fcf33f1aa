#include "Device.h"

#include "Names.h"

namespace
{

constexpr int HistorySize = 10000;

}

Device::Device(const DeviceTimes& times, const DeviceOptions& options)
    : options(options),
      gsm("gsm", Names::GsmService, Names::GsmObject, Names::GsmInterface),
      sound("sound", Names::SoundManagerService, Names::SoundManagerObject, Names::SoundManagerInterface),
      audioOut("audio-out", Names::AudioOutCtlService, Names::AudioOutCtlObject, Names::AudioOutCtlInterface),
      audioIn("audio-in", Names::AudioInCtlService, Names::AudioInCtlObject, Names::AudioInCtlInterface),
      modem(times),
      daemon(gsm, modem),
      atModem(modem, gsm, options.atStaysOn),
      audio(sound, audioOut, audioIn)
{
    for (BusService* service : Services()) {
        service->CheckComplete();
        connect(service, &BusService::RequestReceived, this, [this](const QString& request) {
            if (history.size() == HistorySize)
                history.removeFirst();
            history.append(request);
            Q_EMIT Event(QStringLiteral("-> ") + request);
        });
        connect(service, &BusService::SignalSent, this,
                [this](const QString& signal) { Q_EMIT Event(QStringLiteral("<- ") + signal); });
    }

    if (!options.HasAtPort())
        return;
    gsm.ReportOffBusToo();
    connect(&atPort, &AtPort::Opened, &atModem, &AtModem::Open);
    connect(&atPort, &AtPort::Closed, &atModem, &AtModem::Close);
    connect(&atPort, &AtPort::Received, &atModem, &AtModem::Feed);
    connect(&atModem, &AtModem::Output, &atPort, &AtPort::Write);
    connect(&modem, &Modem::PowerLost, &atPort, &AtPort::Close);
    connect(&modem, &Modem::PluggedChanged, &atPort, &AtPort::SetPlugged);
}

bool Device::IsOffered(const BusService& service) const
{
    return &service == &gsm ? !options.HasAtPort() : options.audio;
}

QString Device::Join()
{
    for (BusService* service : Services()) {
        if (!IsOffered(*service))
            continue;
        if (const QString problem = service->Join(); !problem.isEmpty())
            return problem;
    }
    if (options.atTcpPort > 0) {
        if (const QString problem = atPort.ListenOnTcp(static_cast<quint16>(options.atTcpPort)); !problem.isEmpty())
            return problem;
    }
    if (options.atAbstractName.isEmpty())
        return {};
    // ModemManager marks such a port by a prefix, which it then includes in the socket's name.
    const QString problem = atPort.ListenOnAbstract(options.atAbstractName);
    return problem.isEmpty() ? atPort.ListenOnAbstract(QStringLiteral("abstract:") + options.atAbstractName) : problem;
}

QString Device::WhyUnreachable() const
{
    if (HasAtPort() || gsm.IsOnBus())
        return {};
    return QStringLiteral("the GSM daemon is not on the bus");
}

BusService* Device::Service(const QString& shortName)
{
    for (BusService* service : Services()) {
        if (service->ShortName() == shortName && IsOffered(*service))
            return service;
    }
    return nullptr;
}

BusService* Device::ServiceWithMethod(const QString& method)
{
    for (BusService* service : Services()) {
        if (service->Description().Methods().contains(method))
            return service;
    }
    return nullptr;
}

QVariantMap Device::State() const
{
    QVariantMap state = modem.State();
    const QVariantMap audioState = audio.State();
    for (auto entry = audioState.begin(); entry != audioState.end(); ++entry)
        state.insert(entry.key(), entry.value());
    QStringList faults;
    for (const BusService* service : {&gsm, &sound, &audioOut, &audioIn}) {
        state.insert(QStringLiteral("daemon-") + service->ShortName(), service->IsOnBus());
        faults.append(service->Faults());
    }
    if (HasAtPort())
        state.insert(QStringLiteral("at-port"), atPort.IsOpen() ? "open" : "closed");
    state.insert(QStringLiteral("faults"), faults.join(QStringLiteral("; ")));
    return state;
}
