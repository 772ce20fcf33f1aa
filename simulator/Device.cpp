#include "Device.h"

#include "Names.h"

namespace
{

constexpr int HistorySize = 10000;

}

Device::Device(const DeviceTimes& times)
    : gsm("gsm", Names::GsmService, Names::GsmObject, "com.quillmark.kova.gsminterface"),
      sound("sound", Names::SoundManagerService, Names::SoundManagerObject, "com.quillmark.kova.soundinterface"),
      audioOut("audio-out", Names::AudioOutCtlService, Names::AudioOutCtlObject,
               "com.quillmark.kova.audiooutctlinterface"),
      audioIn("audio-in", Names::AudioInCtlService, Names::AudioInCtlObject, "com.quillmark.kova.audioinctlinterface"),
      modem(gsm, times),
      audio(sound, audioOut, audioIn)
{
    for (BusService* service : Services()) {
        service->CheckComplete();
        connect(service, &BusService::Asked, this, [this](const QString& request) {
            if (history.size() == HistorySize)
                history.removeFirst();
            history.append(request);
            Q_EMIT Event(QStringLiteral("-> ") + request);
        });
        connect(service, &BusService::Sent, this,
                [this](const QString& signal) { Q_EMIT Event(QStringLiteral("<- ") + signal); });
    }
}

QString Device::Join()
{
    for (BusService* service : Services()) {
        const QString problem = service->Join();
        if (!problem.isEmpty())
            return problem;
    }
    return {};
}

BusService* Device::Service(const QString& shortName)
{
    for (BusService* service : Services()) {
        if (service->ShortName() == shortName)
            return service;
    }
    return nullptr;
}

BusService* Device::ServiceOf(const QString& method)
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
    state.insert(QStringLiteral("faults"), faults.join(QStringLiteral("; ")));
    return state;
}
