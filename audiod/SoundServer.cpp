#include "SoundServer.h"

#include "AudioLog.h"
#include "PulseLoop.h"

#include <QMetaObject>

#include <algorithm>
#include <memory>
#include <pulse/error.h>
#include <pulse/operation.h>
#include <pulse/proplist.h>
#include <pulse/subscribe.h>

namespace
{

constexpr int FirstRetryMs = 250;
constexpr int CallRetryMs = 1000;  ///< the longest delay while the server is in use
constexpr int IdleRetryMs = 60000; ///< the longest delay otherwise; the next request connects at once

constexpr char DefaultSink[] = "@DEFAULT_SINK@";
constexpr char DefaultSource[] = "@DEFAULT_SOURCE@";

void Read(const pa_sink_info& info, SoundDevice& device)
{
    device = {info.name, QString(), bool(info.flags & PA_SINK_HARDWARE)};
}

void Read(const pa_source_info& info, SoundDevice& device)
{
    device = {info.name, info.monitor_of_sink_name, bool(info.flags & PA_SOURCE_HARDWARE)};
}

void Read(const pa_module_info& info, SoundModule& module)
{
    module = {info.index, info.name, info.argument};
}

/// Of a sink or a source.
template <class Info>
void Read(const Info& info, SoundLevel& level)
{
    level = {info.index, info.volume, info.mute != 0};
}

}

/// One request. libpulse first delivers the parts of the result, then the final state of the request.
template <class Result>
struct SoundServer::Request {
    Answer<Result> answer;
    Result result = {};
    bool failed = false;

    /// @param operation is null if the request could not be made.
    void Watch(SoundServer* server, pa_operation* operation)
    {
        if (!operation) {
            QMetaObject::invokeMethod(
                server, [this] { Finish(false); }, Qt::QueuedConnection);
            return;
        }
        pa_operation_set_state_callback(operation, OnState, this);
        pa_operation_unref(operation);
    }

    static void OnState(pa_operation* operation, void* self)
    {
        const pa_operation_state_t state = pa_operation_get_state(operation);
        if (state != PA_OPERATION_RUNNING)
            static_cast<Request*>(self)->Finish(state == PA_OPERATION_DONE);
    }

    void Finish(bool done)
    {
        const std::unique_ptr<Request> self(this);
        answer(done && !failed ? std::optional<Result>(std::move(result)) : std::nullopt);
    }

    static void OnSuccess(pa_context*, int success, void* self) { static_cast<Request*>(self)->failed = !success; }
};

template <class Info, class Item, class Get>
void SoundServer::GetList(const Get& get, const Answer<QList<Item>>& answer)
{
    auto* request = new Request<QList<Item>>{answer};
    void (*const onItem)(pa_context*, const Info*, int, void*) = [](pa_context*, const Info* info, int end,
                                                                    void* self) {
        auto* request = static_cast<Request<QList<Item>>*>(self);
        if (info) {
            request->result.append(Item());
            Read(*info, request->result.last());
        }
        request->failed |= end < 0;
    };
    request->Watch(this, ready ? get(context, onItem, request) : nullptr);
}

SoundServer::SoundServer() : retryMs(FirstRetryMs)
{
    retry.setSingleShot(true);
    connect(&retry, &QTimer::timeout, this, &SoundServer::Connect);
}

SoundServer::~SoundServer()
{
    Close();
}

// The connection

void SoundServer::Connect()
{
    if (context || closed)
        return;
    retry.stop();

    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, "kova-audiod");
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, "com.quillmark.kova.audiod");
    context = pa_context_new_with_proplist(PulseLoop(), nullptr, properties);
    pa_proplist_free(properties);

    pa_context_set_state_callback(
        context, [](pa_context*, void* self) { static_cast<SoundServer*>(self)->OnState(); }, this);
    pa_context_set_subscribe_callback(
        context,
        [](pa_context*, pa_subscription_event_type_t change, uint32_t, void* self) {
            static_cast<SoundServer*>(self)->OnChange(change);
        },
        this);
    // Do not start a server: it would have this process's restrictions and end with it.
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        OnState();
}

void SoundServer::OnState()
{
    const pa_context_state_t state = pa_context_get_state(context);
    if (state == PA_CONTEXT_READY) {
        ready = true;
        retryMs = FirstRetryMs;
        AUDIO_LOG(LogLevelProgress, "Connected to the sound server at %s", pa_context_get_server(context));
        Subscribe();
        Q_EMIT Ready();
    } else if (!PA_CONTEXT_IS_GOOD(state)) {
        connectError = QString::fromUtf8(pa_strerror(pa_context_errno(context)));
        if (ready)
            AUDIO_LOG(LogLevelWarning, "The sound server is gone: %s", qPrintable(connectError));
        ready = false;
        // libpulse is still using the context.
        QMetaObject::invokeMethod(this, &SoundServer::Drop, Qt::QueuedConnection);
    }
}

void SoundServer::Drop()
{
    if (!context || PA_CONTEXT_IS_GOOD(pa_context_get_state(context)))
        return;
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_unref(context);
    context = nullptr;
    ScheduleConnect();
    Q_EMIT Lost();
}

void SoundServer::ScheduleConnect()
{
    if (closed)
        return;
    retryMs = std::min(retryMs, inUse ? CallRetryMs : IdleRetryMs);
    retry.start(retryMs);
    retryMs *= 2;
}

void SoundServer::Close()
{
    closed = true;
    ready = false;
    retry.stop();
    if (!context)
        return;
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_set_subscribe_callback(context, nullptr, nullptr);
    pa_context_disconnect(context);
    pa_context_unref(context);
    context = nullptr;
}

QString SoundServer::Error() const
{
    return ready ? QString::fromUtf8(pa_strerror(pa_context_errno(context))) : connectError;
}

void SoundServer::SetInUse(bool inUse)
{
    if (this->inUse == inUse)
        return;
    this->inUse = inUse;
    retryMs = FirstRetryMs;
    if (ready)
        Subscribe();
    else if (inUse)
        Connect();
}

void SoundServer::Subscribe()
{
    const int events = inUse ? PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE |
                                   PA_SUBSCRIPTION_MASK_MODULE
                             : PA_SUBSCRIPTION_MASK_NULL;
    if (pa_operation* operation =
            pa_context_subscribe(context, static_cast<pa_subscription_mask_t>(events), nullptr, nullptr))
        pa_operation_unref(operation);
}

void SoundServer::OnChange(pa_subscription_event_type_t change)
{
    // Ignore changes of a device itself, such as its volume.
    const int facility = change & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const int type = change & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    if (facility == PA_SUBSCRIPTION_EVENT_SERVER || type != PA_SUBSCRIPTION_EVENT_CHANGE)
        Q_EMIT Changed();
}

// Requests

void SoundServer::GetSetup(const Answer<SoundSetup>& answer)
{
    struct Collected {
        SoundSetup setup;
        int parts = 4;
        bool failed = false;
    };
    const auto collected = std::make_shared<Collected>();
    const auto into = [&](auto& field) {
        return [collected, answer, &field](const auto& value) {
            if (value)
                field = *value;
            else
                collected->failed = true;
            if (--collected->parts == 0)
                answer(collected->failed ? std::nullopt : std::optional(collected->setup));
        };
    };

    auto* defaults = new Request<SoundDefaults>{into(collected->setup.defaults)};
    const auto onDefaults = [](pa_context*, const pa_server_info* info, void* self) {
        auto* request = static_cast<Request<SoundDefaults>*>(self);
        if (info)
            request->result = {info->default_sink_name, info->default_source_name};
        else
            request->failed = true;
    };
    defaults->Watch(this, ready ? pa_context_get_server_info(context, onDefaults, defaults) : nullptr);

    GetList<pa_sink_info, SoundDevice>(pa_context_get_sink_info_list, into(collected->setup.sinks));
    GetList<pa_source_info, SoundDevice>(pa_context_get_source_info_list, into(collected->setup.sources));
    GetList<pa_module_info, SoundModule>(pa_context_get_module_info_list, into(collected->setup.modules));
}

void SoundServer::LoadModule(const char* name, const QString& argument, const Answer<uint32_t>& answer)
{
    auto* request = new Request<uint32_t>{answer};
    const auto onLoaded = [](pa_context*, uint32_t index, void* self) {
        auto* request = static_cast<Request<uint32_t>*>(self);
        request->result = index;
        request->failed = index == PA_INVALID_INDEX;
    };
    request->Watch(this, ready ? pa_context_load_module(context, name, qUtf8Printable(argument), onLoaded, request)
                               : nullptr);
}

void SoundServer::UnloadModule(uint32_t index, const Answer<bool>& answer)
{
    auto* request = new Request<bool>{answer};
    const auto onUnloaded = [](pa_context* context, int success, void* self) {
        static_cast<Request<bool>*>(self)->failed = !success && pa_context_errno(context) != PA_ERR_NOENTITY;
    };
    request->Watch(this, ready ? pa_context_unload_module(context, index, onUnloaded, request) : nullptr);
}

void SoundServer::GetLevel(DeviceKind kind, const Answer<SoundLevel>& answer)
{
    const auto first = [answer](const std::optional<QList<SoundLevel>>& levels) {
        answer(levels && !levels->isEmpty() ? std::optional(levels->first()) : std::nullopt);
    };
    const auto byName = [](auto* get, const char* name) {
        return [=](pa_context* context, auto* callback, void* self) { return get(context, name, callback, self); };
    };
    if (kind == DeviceKind::Sink)
        GetList<pa_sink_info, SoundLevel>(byName(pa_context_get_sink_info_by_name, DefaultSink), first);
    else
        GetList<pa_source_info, SoundLevel>(byName(pa_context_get_source_info_by_name, DefaultSource), first);
}

void SoundServer::SetVolume(DeviceKind kind, uint32_t device, const pa_cvolume& volume, const Answer<bool>& answer)
{
    const auto set =
        kind == DeviceKind::Sink ? pa_context_set_sink_volume_by_index : pa_context_set_source_volume_by_index;
    auto* request = new Request<bool>{answer};
    request->Watch(this, ready ? set(context, device, &volume, Request<bool>::OnSuccess, request) : nullptr);
}

void SoundServer::SetMute(DeviceKind kind, uint32_t device, bool mute, const Answer<bool>& answer)
{
    const auto set = kind == DeviceKind::Sink ? pa_context_set_sink_mute_by_index : pa_context_set_source_mute_by_index;
    auto* request = new Request<bool>{answer};
    request->Watch(this, ready ? set(context, device, mute, Request<bool>::OnSuccess, request) : nullptr);
}
