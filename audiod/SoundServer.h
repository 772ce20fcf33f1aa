#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <optional>
#include <pulse/context.h>
#include <pulse/introspect.h>
#include <pulse/volume.h>

/// The two kinds of devices of a sound server.
enum class DeviceKind { Sink, Source };

/// A sink or a source.
struct SoundDevice {
    QString name;
    QString monitorOf; ///< the sink that this source listens to; empty for all others
    bool hardware;
};

/// A module that the server has loaded.
struct SoundModule {
    uint32_t index;
    QString name;
    QString argument;
};

/// The names of the default devices; empty if there is none.
struct SoundDefaults {
    QString sink;
    QString source;
};

/// The part of the server's state that a voice route depends on.
struct SoundSetup {
    SoundDefaults defaults;
    QList<SoundDevice> sinks;
    QList<SoundDevice> sources;
    QList<SoundModule> modules;
};

/// Volume and mute of a device.
struct SoundLevel {
    uint32_t index; ///< the device's
    pa_cvolume volume;
    bool mute;
};

/// The connection to the sound server, PulseAudio or PipeWire. It is made again whenever it is lost. Nothing here
/// blocks: each request calls a function once with its result, which is empty if the request failed or the connection
/// was lost. A server that does not answer counts as lost after libpulse's own limit of 30 s.
class SoundServer : public QObject
{
    Q_OBJECT

public:
    template <class Result>
    using Answer = std::function<void(const std::optional<Result>&)>;

    SoundServer();
    ~SoundServer() override;

    /// Connects, unless connected or connecting.
    void Connect();
    /// Ends the connection permanently. Pending requests fail.
    void Close();
    bool IsReady() const { return ready; }
    /// Returns whether a connection attempt is still unanswered.
    /// Returns why the last request or connection failed.
    QString Error() const;
    /// The context of a ready connection, for streams.
    pa_context* Context() const { return context; }

    /// While in use, a lost connection is soon made again, and changes of devices, defaults and modules are reported.
    void SetInUse(bool inUse);

    void GetSetup(const Answer<SoundSetup>& answer);
    /// @param answer receives the module's index.
    void LoadModule(const char* name, const QString& argument, const Answer<uint32_t>& answer);
    /// Succeeds even if the module no longer exists.
    void UnloadModule(uint32_t index, const Answer<bool>& answer);

    /// Of the default device.
    void GetLevel(DeviceKind kind, const Answer<SoundLevel>& answer);
    void SetVolume(DeviceKind kind, uint32_t device, const pa_cvolume& volume, const Answer<bool>& answer);
    void SetMute(DeviceKind kind, uint32_t device, bool mute, const Answer<bool>& answer);

Q_SIGNALS:
    void Ready();
    /// The connection was lost, or an attempt to connect has failed.
    void Lost();
    /// Default devices, devices or modules have changed, while the server is in use.
    void Changed();

private:
    template <class Result>
    struct Request;

    template <class Info, class Item, class Get>
    void GetList(const Get& get, const Answer<QList<Item>>& answer);

    void OnState();
    void OnChange(pa_subscription_event_type_t change);
    void Subscribe();
    void Drop();
    void ScheduleConnect();

    pa_context* context = nullptr;
    bool ready = false;
    bool inUse = false;
    bool closed = false;
    QString connectError;
    QTimer retry;
    int retryMs;
};
