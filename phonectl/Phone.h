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

/// What the service tells without being asked, or what became of it.
struct PhoneEvent {
    enum Kind {
        PhoneStatus,
        SimPresent,
        VoiceCall,
        SmsSent,
        SmsReceived,
        ServiceLeft,
        ServiceCame,
        CallEndedBelow, ///< the GSM daemon reports a call's end; heard before the service's VoiceCall
    };

    Kind kind;
    uint value = 0; ///< of PhoneStatus, VoiceCall; the identifier of SmsSent
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

/// The phone service's client, made for following: requests and events are waited for in turn, and each wait ends with
/// a Failure at the time limit or on Ctrl-C.
class Phone : public QObject
{
    Q_OBJECT

public:
    enum Earlier { ForgetEarlier, KeepEarlier };

    /// Ready to hear events before anything is asked. Throws a Failure without a session bus.
    Phone(const Arguments& arguments, Progress& progress);
    ~Phone() override;

    /// Waits for the answer to a request of Proxy(), starting the service when the bus knows how to. What the service
    /// said before its answer is forgotten: it has one thread, so that belongs to what was before. Throws a Failure
    /// when the service refuses, or cannot be reached.
    template <typename... Rest>
    QDBusPendingReply<int, Rest...> Ask(QDBusPendingReply<int, Rest...> reply)
    {
        AwaitAnswer(reply, ForgetEarlier);
        RequireSuccess(reply.template argumentAt<0>());
        return reply;
    }

    PhoneState State(Earlier earlier = ForgetEarlier);

    /// Waits for the next event.
    /// @param awaited what is shown meanwhile.
    /// @param quietMs return nothing when none has come for so long; -1 waits on.
    std::optional<PhoneEvent> Next(const QString& awaited, int quietMs = -1);
    bool HasEvent() const { return !events.isEmpty(); }
    void ForgetEvents() { events.clear(); }

    /// Waits for an answer that is not the service's; an error is the caller's to judge.
    /// @param onAnswer is done when it comes, before any event that follows.
    void Await(
        const QDBusPendingCall& call, const QString& awaited, const std::function<void()>& onAnswer = [] {});

    /// After Ctrl-C: asks on the terminal, and waits again if the answer is yes. A second Ctrl-C says no, as does a
    /// standard input that is no terminal.
    bool Confirm(const QString& question);

    /// Whether a service of the session bus is there.
    bool IsOnBus(const char* service) const;

    /// The time left from now on, unless the user has given one.
    void LimitTo(int seconds);
    void Unlimit();

    PhoneProxy& Proxy() { return proxy; }
    /// The GSM daemon, whose reports of calls are among the events once this has been called.
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
