#pragma once

#include "Arguments.h"
#include "GsmProxy.h"
#include "Output.h"
#include "PhoneProxy.h"

#include <QDBusServiceWatcher>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QList>
#include <QSocketNotifier>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>

/// A signal of the service, its arrival on the bus or departure, or the end of a call in the GSM daemon.
struct PhoneEvent {
    enum Kind {
        PhoneStatus,
        SimPresent,
        VoiceCall,
        SmsSent,
        SmsReceived,
        ServiceLeft,
        ServiceCame,
        CallEndedBelow, ///< the GSM daemon reports the end of a call; precedes the service's VoiceCall
    };

    Kind kind;
    uint value = 0; ///< of PhoneStatus and VoiceCall; the identifier in SmsSent
    bool flag = false;
    QString text = {};
    QVariantMap info = {};
};

struct PhoneState {
    uint phoneStatus;
    uint simStatus;
    uint rssi;
    bool userEnabled;
    bool forced;
};

/// A client of the phone service that makes requests and waits for their effects. At the time limit or on Ctrl-C, each
/// wait throws a Failure.
class PhoneClient : public QObject
{
    Q_OBJECT

public:
    enum Earlier { ForgetEarlier, KeepEarlier };

    /// Subscribes to the service's signals. Throws a Failure without a session bus.
    PhoneClient(const Arguments& arguments, Progress& progress);
    ~PhoneClient() override;

    /// Waits for the answer to a request through Proxy(). The bus starts the service if it can. Discards the events
    /// before the answer: the service has one thread, so they precede the request. Throws a Failure if the service
    /// refuses or cannot be reached.
    template <typename... Rest>
    QDBusPendingReply<int, Rest...> Ask(QDBusPendingReply<int, Rest...> reply)
    {
        AwaitAnswer(reply, ForgetEarlier);
        RequireSuccess(reply.template argumentAt<0>());
        return reply;
    }

    PhoneState State(Earlier earlier = ForgetEarlier);

    /// Waits for the next event.
    /// @param awaited the event's name in the live line.
    /// @param quietMs return nothing after this time without an event; -1 means no limit.
    std::optional<PhoneEvent> Next(const QString& awaited, int quietMs = -1);
    bool HasEvent() const { return !events.isEmpty(); }
    void ForgetEvents() { events.clear(); }

    /// Waits for another service's answer, which may be an error.
    /// @param onAnswer is called with the answer, before later events are recorded.
    void Await(
        const QDBusPendingCall& call, const QString& awaited, const std::function<void()>& onAnswer = [] {});

    /// Asks a question on the terminal after Ctrl-C. If the answer is yes, further waits are possible. A second Ctrl-C
    /// means no, as does a standard input that is not a terminal.
    bool Confirm(const QString& question);

    /// @return whether a service is on the session bus.
    bool IsOnBus(const char* service) const;

    /// Sets the time limit, counted from now, unless the user has given one; Unlimit() removes it.
    void LimitTo(int seconds);
    void Unlimit();

    PhoneProxy& Proxy() { return proxy; }
    /// The GSM daemon. The first call adds the daemon's call signals to the events.
    GsmProxy& Gsm();

private:
    void AwaitAnswer(const QDBusPendingCall& call, Earlier earlier);
    void RequireSuccess(int status) const;
    bool Wait(const QString& awaited, QDeadlineTimer until, const std::function<bool()>& isOver);
    void Add(const PhoneEvent& event);

    Progress& progress;
    const int userTimeoutMs;
    QDeadlineTimer deadline;
    const int interruptFd;
    QSocketNotifier interrupt;
    bool interrupted = false;
    bool isBusLost = false;
    PhoneProxy proxy;
    std::unique_ptr<GsmProxy> gsm;
    QDBusServiceWatcher watcher;
    QEventLoop loop;
    QList<PhoneEvent> events;

private Q_SLOTS:
    void OnBusLost();
};
