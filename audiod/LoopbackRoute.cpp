#include "LoopbackRoute.h"

#include "AudioLog.h"

#include <algorithm>

namespace
{

constexpr char Loopback[] = "module-loopback";
/// A property of the loopbacks' streams, by which a later life of this program knows them.
constexpr char Mark[] = "kova.voice=1";
/// What a person does not notice in a conversation. The server raises it where the hardware cannot keep up.
constexpr int LatencyMs = 20;
/// Devices come and go in groups.
constexpr int GroupMs = 50;

/// The role has the server pause music during the call. A loopback that lost its device would be moved to another by
/// the server, and could connect the microphone with the loudspeaker: these end instead.
QString Argument(const VoiceLink& link)
{
    return QStringLiteral("source=\"%1\" source_dont_move=yes sink=\"%2\" sink_dont_move=yes latency_msec=%3 "
                          "sink_input_properties=\"%4\" source_output_properties=\"%4\"")
        .arg(link.source, link.sink)
        .arg(LatencyMs)
        .arg(QStringLiteral("media.role=phone %1").arg(QLatin1String(Mark)));
}

bool IsOurs(const SoundModule& module)
{
    return module.name == QLatin1String(Loopback) && module.argument.contains(QLatin1String(Mark));
}

bool Contains(const QList<SoundDevice>& devices, const QString& name)
{
    return std::any_of(devices.begin(), devices.end(), [&](const SoundDevice& device) { return device.name == name; });
}

/// @return the preferred device if it is usable, else a usable one, hardware first; an empty text if there is none.
template <class Usable>
QString Choose(const QList<SoundDevice>& devices, const QString& preferred, const Usable& usable)
{
    QString chosen;
    bool hardware = false;
    for (const SoundDevice& device : devices) {
        if (!usable(device))
            continue;
        if (device.name == preferred)
            return preferred;
        if (chosen.isEmpty() || (device.hardware && !hardware)) {
            chosen = device.name;
            hardware = device.hardware;
        }
    }
    return chosen;
}

}

LoopbackRoute::LoopbackRoute(SoundServer& server, const QString& modemSource, const QString& modemSink)
    : server(server),
      modemSource(modemSource),
      modemSink(modemSink)
{
    changed.setSingleShot(true);
    changed.setInterval(GroupMs);
    connect(&changed, &QTimer::timeout, this, &LoopbackRoute::Apply);

    connect(&server, &SoundServer::Ready, this, &LoopbackRoute::Apply);
    connect(&server, &SoundServer::Lost, this, [this] { Settle(Wish().call ? this->server.Error() : QString()); });
    connect(&server, &SoundServer::Changed, this, [this] {
        if (!changed.isActive())
            changed.start();
    });
}

void LoopbackRoute::Work()
{
    server.SetInUse(Wish().call);
    if (!server.IsReady() && Wish().call) {
        server.Connect();
        Await();
        return;
    }
    if (!server.IsReady()) {
        // There is no loopback to remove, or it will be when the server is ready.
        Settle(QString());
        return;
    }
    problem.clear();
    server.GetSetup([this](const std::optional<SoundSetup>& setup) { OnSetup(setup); });
}

QString LoopbackRoute::Speaker(const SoundSetup& setup) const
{
    // A server that has no better device makes the modem's own the default: the far end would hear itself.
    return Choose(setup.sinks, setup.defaults.sink, [this](const SoundDevice& sink) { return sink.name != modemSink; });
}

QString LoopbackRoute::Microphone(const SoundSetup& setup, const QString& speaker) const
{
    // The same with what the speaker or the modem plays.
    return Choose(setup.sources, setup.defaults.source, [&](const SoundDevice& source) {
        const bool chosen = source.name == setup.defaults.source;
        return source.name != modemSource && source.monitorOf != speaker && source.monitorOf != modemSink &&
               (chosen || source.monitorOf.isEmpty());
    });
}

/// The loopbacks that there should be. What is missing for them goes to `problem`.
QList<VoiceLink> LoopbackRoute::Wanted(const SoundSetup& setup)
{
    if (!Wish().call)
        return {};

    QStringList missing;
    const auto require = [&](bool found, const QString& what) {
        if (!found)
            missing.append(what);
        return found;
    };
    const QString speaker = Speaker(setup);
    const QString microphone = Microphone(setup, speaker);
    const bool hasModemSource =
        require(Contains(setup.sources, modemSource), QStringLiteral("source %1").arg(modemSource));
    const bool hasSpeaker = require(!speaker.isEmpty(), QStringLiteral("loudspeaker"));
    const bool hasModemSink = require(Contains(setup.sinks, modemSink), QStringLiteral("sink %1").arg(modemSink));
    const bool hasMicrophone = require(!microphone.isEmpty(), QStringLiteral("microphone"));
    if (!missing.isEmpty())
        problem = QStringLiteral("the sound server has no %1").arg(missing.join(QStringLiteral(", no ")));

    QList<VoiceLink> wanted;
    if (hasModemSource && hasSpeaker)
        wanted.append({modemSource, speaker});
    if (hasModemSink && hasMicrophone)
        wanted.append({microphone, modemSink});
    return wanted;
}

void LoopbackRoute::OnSetup(const std::optional<SoundSetup>& setup)
{
    open = 1; // this function itself
    const auto done = [this](const auto& result) {
        if (!result && problem.isEmpty())
            problem = server.Error();
        if (--open == 0)
            Settle(problem);
    };

    if (setup) {
        QList<VoiceLink> missing = Wanted(*setup);
        QList<uint32_t> surplus;
        for (const SoundModule& module : setup->modules) {
            if (!IsOurs(module))
                continue;
            const auto carries = [&](const VoiceLink& link) { return Argument(link) == module.argument; };
            const auto found = std::find_if(missing.begin(), missing.end(), carries);
            if (found != missing.end())
                missing.erase(found);
            else
                surplus.append(module.index);
        }
        // The new ones first: the voice has no gap when a headset is plugged in.
        for (const VoiceLink& link : std::as_const(missing)) {
            ++open;
            AUDIO_LOG(LogLevelProgress, "Voice route: %s to %s", qPrintable(link.source), qPrintable(link.sink));
            server.LoadModule(Loopback, Argument(link), done);
        }
        for (const uint32_t index : std::as_const(surplus)) {
            ++open;
            server.UnloadModule(index, done);
        }
    }
    done(setup);
}
