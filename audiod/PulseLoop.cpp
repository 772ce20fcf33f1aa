#include "PulseLoop.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <algorithm>
#include <climits>
#include <sys/time.h>

namespace PulseEvents
{

/// Base of the three kinds of events. libpulse may free an event inside its own callback: the event stops at once, and
/// the event loop deletes it later.
template <class Event>
struct Base : QObject {
    using Destroy = void (*)(pa_mainloop_api*, Event*, void*);

    Base(pa_mainloop_api* api, void* userdata) : api(api), userdata(userdata) {}

    pa_mainloop_api* const api;
    void* const userdata;
    Destroy destroy = nullptr;
};

template <class Event>
void Free(Event* event)
{
    event->Stop();
    if (event->destroy)
        event->destroy(event->api, event, event->userdata);
    event->deleteLater();
}

template <class Event>
void SetDestroy(Event* event, typename Event::Destroy destroy)
{
    event->destroy = destroy;
}

}

// libpulse only declares the three structures. The main loop defines them.

struct pa_io_event : PulseEvents::Base<pa_io_event> {
    pa_io_event(pa_mainloop_api* api, int fd, pa_io_event_flags_t wanted, pa_io_event_cb_t callback, void* userdata)
        : Base(api, userdata),
          input(fd, QSocketNotifier::Read),
          output(fd, QSocketNotifier::Write)
    {
        // A closed connection is reported as input.
        connect(&input, &QSocketNotifier::activated, this,
                [=, this] { callback(api, this, fd, PA_IO_EVENT_INPUT, userdata); });
        connect(&output, &QSocketNotifier::activated, this,
                [=, this] { callback(api, this, fd, PA_IO_EVENT_OUTPUT, userdata); });
        Enable(wanted);
    }

    void Enable(pa_io_event_flags_t wanted)
    {
        input.setEnabled(wanted & PA_IO_EVENT_INPUT);
        output.setEnabled(wanted & PA_IO_EVENT_OUTPUT);
    }

    void Stop() { Enable(PA_IO_EVENT_NULL); }

    QSocketNotifier input;
    QSocketNotifier output;
};

struct pa_time_event : PulseEvents::Base<pa_time_event> {
    pa_time_event(pa_mainloop_api* api, const timeval* when, pa_time_event_cb_t callback, void* userdata)
        : Base(api, userdata)
    {
        timer.setSingleShot(true);
        connect(&timer, &QTimer::timeout, this, [=, this] { callback(api, this, &due, userdata); });
        Restart(when);
    }

    /// @param when Unix time; null for never.
    void Restart(const timeval* when)
    {
        timer.stop();
        if (!when)
            return;
        due = *when;
        timeval now = {};
        gettimeofday(&now, nullptr);
        const long long milliseconds = (due.tv_sec - now.tv_sec) * 1000LL + (due.tv_usec - now.tv_usec) / 1000;
        timer.start(static_cast<int>(std::clamp(milliseconds, 0LL, static_cast<long long>(INT_MAX))));
    }

    void Stop() { timer.stop(); }

    QTimer timer;
    timeval due = {};
};

/// Calls libpulse in each iteration of the loop while enabled.
struct pa_defer_event : PulseEvents::Base<pa_defer_event> {
    pa_defer_event(pa_mainloop_api* api, pa_defer_event_cb_t callback, void* userdata) : Base(api, userdata)
    {
        connect(&timer, &QTimer::timeout, this, [=, this] { callback(api, this, userdata); });
        Enable(true);
    }

    void Enable(bool enabled) { enabled ? timer.start(0) : timer.stop(); }
    void Stop() { timer.stop(); }

    QTimer timer;
};

pa_mainloop_api* PulseLoop()
{
    static pa_mainloop_api api = {
        .userdata = nullptr,
        .io_new = [](pa_mainloop_api* api, int fd, pa_io_event_flags_t wanted, pa_io_event_cb_t callback,
                     void* userdata) { return new pa_io_event(api, fd, wanted, callback, userdata); },
        .io_enable = [](pa_io_event* event, pa_io_event_flags_t wanted) { event->Enable(wanted); },
        .io_free = PulseEvents::Free<pa_io_event>,
        .io_set_destroy = PulseEvents::SetDestroy<pa_io_event>,
        .time_new = [](pa_mainloop_api* api, const timeval* when, pa_time_event_cb_t callback,
                       void* userdata) { return new pa_time_event(api, when, callback, userdata); },
        .time_restart = [](pa_time_event* event, const timeval* when) { event->Restart(when); },
        .time_free = PulseEvents::Free<pa_time_event>,
        .time_set_destroy = PulseEvents::SetDestroy<pa_time_event>,
        .defer_new = [](pa_mainloop_api* api, pa_defer_event_cb_t callback,
                        void* userdata) { return new pa_defer_event(api, callback, userdata); },
        .defer_enable = [](pa_defer_event* event, int enabled) { event->Enable(enabled); },
        .defer_free = PulseEvents::Free<pa_defer_event>,
        .defer_set_destroy = PulseEvents::SetDestroy<pa_defer_event>,
        // libpulse must not decide whether the process ends.
        .quit = [](pa_mainloop_api*, int) {},
    };
    return &api;
}
