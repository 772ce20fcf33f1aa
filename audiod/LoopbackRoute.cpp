#include "LoopbackRoute.h"

#include "AudioLog.h"

#include <algorithm>

namespace
{

constexpr char Loopback[] = "module-loopback";
/// A property of the loopbacks' streams, by which a later process of this program recognises them.
constexpr char Mark[] = "kova.voice=1";
/// Not noticed in a conversation. The server raises the latency if the hardware needs it.
constexpr int LatencyMs = 20;
/// Devices appear and disappear in groups.
constexpr int GroupMs = 50;

/// The role makes the server pause music during the call. The server would move a loopback that lost its device to
/// another, and could so connect the microphone with the loudspeaker. These loopbacks end instead.
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

/// @return the preferred device if it is usable, else another, hardware first; an empty string if there is none.
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
    connect(&changed, &QTimer::timeout, this, &LoopbackRoute::StartUpdate);

    connect(&server, &SoundServer::Ready, this, &LoopbackRoute::StartUpdate);
    connect(&server, &SoundServer::Lost, this,
            [this] { FinishUpdate(Wanted().call ? this->server.Error() : QString()); });
    connect(&server, &SoundServer::Changed, this, [this] {
        if (!changed.isActive())
            changed.start();
    });
}

void LoopbackRoute::Update()
{
    server.SetInUse(Wanted().call);
    if (!server.IsReady() && Wanted().call) {
        server.Connect();
        WaitForChange();
        return;
    }
    if (!server.IsReady()) {
        // There is no loopback to remove yet. If the server has one, it is removed once the server is ready.
        FinishUpdate(QString());
        return;
    }
    problem.clear();
    server.GetSetup([this](const std::optional<SoundSetup>& setup) { OnSetup(setup); });
}

QString LoopbackRoute::Speaker(const SoundSetup& setup) const
{
    // If there is no other device, the modem's own is the default. Routed to it, the far end would hear itself.
    return Choose(setup.sinks, setup.defaults.sink, [this](const SoundDevice& sink) { return sink.name != modemSink; });
}

QString LoopbackRoute::Microphone(const SoundSetup& setup, const QString& speaker) const
{
    // The same holds for monitors of the speaker and the modem.
    return Choose(setup.sources, setup.defaults.source, [&](const SoundDevice& source) {
        const bool isDefault = source.name == setup.defaults.source;
        return source.name != modemSource && source.monitorOf != speaker && source.monitorOf != modemSink &&
               (isDefault || source.monitorOf.isEmpty());
    });
}

/// Returns the wanted loopbacks. `problem` receives what is missing for them.
QList<VoiceLink> LoopbackRoute::WantedLinks(const SoundSetup& setup)
{
    if (!Wanted().call)
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
    pendingRequests = 1; // one more, until all requests have been sent
    const auto done = [this](const auto& result) {
        if (!result && problem.isEmpty())
            problem = server.Error();
        if (--pendingRequests == 0)
            FinishUpdate(problem);
    };

    if (setup) {
        QList<VoiceLink> missing = WantedLinks(*setup);
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
        // Load the new ones first, so that plugging in a headset causes no gap.
        for (const VoiceLink& link : std::as_const(missing)) {
            ++pendingRequests;
            AUDIO_LOG(LogLevelProgress, "Voice route: %s to %s", qPrintable(link.source), qPrintable(link.sink));
            server.LoadModule(Loopback, Argument(link), done);
        }
        for (const uint32_t index : std::as_const(surplus)) {
            ++pendingRequests;
            server.UnloadModule(index, done);
        }
    }
    done(setup);
}
