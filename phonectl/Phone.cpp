#include "Phone.h"

#include "Names.h"
#include "PhoneCodes.h"
#include "Words.h"

#include <QDBusConnection>

#include <algorithm>
#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace
{

/// Longer than the service can be blocked by what is asked and what it is at: switching the modem off alone takes up to
/// 60 s, a message 20 s, a call with its audio 45 s.
constexpr int AnswerTimeoutMs = 300000;

/// Ctrl-C as something to read. Made before the bus connection's thread, which takes over the signal mask.
int OpenInterrupt()
{
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGINT);
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
    return signalfd(-1, &mask, SFD_CLOEXEC);
}

QDBusConnection SessionBus()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        throw Failure{ExitNotOnBus, QStringLiteral("no session bus: %1; run phonectl in the session of the service "
                                                   "(DBUS_SESSION_BUS_ADDRESS names its bus)")
                                        .arg(bus.lastError().message())};
    return bus;
}

Failure Explain(const QDBusError& error)
{
    switch (error.type()) {
    case QDBusError::ServiceUnknown:
        return {ExitNotOnBus, QStringLiteral("the phone service is not on the bus, and the bus cannot start it; "
                                             "'systemctl --user start phonemanager' or 'phonemanager' does")};
    case QDBusError::NoReply:
    case QDBusError::Disconnected:
        return {ExitNotOnBus,
                QStringLiteral("the phone service left the bus or did not answer: %1").arg(error.message())};
    default:
        if (error.name().startsWith(QLatin1String("org.freedesktop.DBus.Error.Spawn")) ||
            error.name().startsWith(QLatin1String("org.freedesktop.systemd1")) || error.type() == QDBusError::TimedOut)
            return {ExitNotOnBus, QStringLiteral("the phone service could not be started: %1").arg(error.message())};
        return {ExitRefused,
                QStringLiteral("the phone service did not understand: %1 (%2)").arg(error.message(), error.name())};
    }
}

}

Phone::Phone(const Arguments& arguments, Progress& progress)
    : progress(progress),
      userTimeoutMs(arguments.TimeoutMs()),
      deadline(userTimeoutMs ? QDeadlineTimer(userTimeoutMs) : QDeadlineTimer(QDeadlineTimer::Forever)),
      interruptFd(OpenInterrupt()),
      interrupt(interruptFd, QSocketNotifier::Read),
      proxy(Names::PhoneService, Names::PhoneObject, SessionBus()),
      watcher(Names::PhoneService, proxy.connection(), QDBusServiceWatcher::WatchForOwnerChange)
{
    proxy.setTimeout(AnswerTimeoutMs);
    connect(&interrupt, &QSocketNotifier::activated, this, [this] {
        interrupt.setEnabled(false);
        interrupted = true;
        loop.quit();
    });
    connect(&proxy, &PhoneProxy::PhoneStatus, this, [this](uint status) { Add({PhoneEvent::PhoneStatus, status}); });
    connect(&proxy, &PhoneProxy::SimPresent, this, [this](bool present) {
        Add({PhoneEvent::SimPresent, present, present});
    });
    connect(&proxy, &PhoneProxy::VoiceCall, this, [this](uint status) { Add({PhoneEvent::VoiceCall, status}); });
    connect(&proxy, &PhoneProxy::SmsSent, this, [this](uint identifier, bool sent) {
        Add({PhoneEvent::SmsSent, identifier, sent});
    });
    connect(&proxy, &PhoneProxy::SmsReceived, this, [this](const QString& text, const QVariantMap& info) {
        Add({PhoneEvent::SmsReceived, 0, false, text, info});
    });
    connect(&watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString& before, const QString& now) {
                if (!before.isEmpty())
                    Add({PhoneEvent::ServiceLeft});
                if (!now.isEmpty())
                    Add({PhoneEvent::ServiceCame});
            });
}

Phone::~Phone()
{
    close(interruptFd);
}

void Phone::Add(const PhoneEvent& event)
{
    events.append(event);
    loop.quit();
}

void Phone::LimitTo(int seconds)
{
    if (!userTimeoutMs)
        deadline.setRemainingTime(seconds * 1000);
}

void Phone::Unlimit()
{
    if (!userTimeoutMs)
        deadline = QDeadlineTimer(QDeadlineTimer::Forever);
}

/// @return false when it is not over at the given time, which may be before the limit of all.
bool Phone::Wait(const QString& awaited, QDeadlineTimer until, const std::function<bool()>& isOver)
{
    progress.Await(awaited);
    const QDeadlineTimer end = std::min(until, deadline);
    QTimer alarm;
    alarm.setSingleShot(true);
    alarm.setTimerType(Qt::PreciseTimer);
    connect(&alarm, &QTimer::timeout, &loop, &QEventLoop::quit);
    while (!isOver() && !interrupted && !end.hasExpired()) {
        if (!end.isForever())
            alarm.start(static_cast<int>(end.remainingTime()));
        loop.exec();
    }
    progress.Await({});

    if (isOver())
        return true;
    if (interrupted)
        throw Failure{ExitInterrupted,
                      QStringLiteral("no longer waiting for %1; what was asked for goes on").arg(awaited)};
    if (deadline.hasExpired())
        throw Failure{ExitTimedOut,
                      QStringLiteral("timed out waiting for %1; what was asked for goes on").arg(awaited)};
    return false;
}

void Phone::AwaitAnswer(const QDBusPendingCall& call, Earlier earlier)
{
    bool answered = false;
    QDBusPendingCallWatcher answer(call);
    connect(&answer, &QDBusPendingCallWatcher::finished, this, [&] {
        answered = true;
        if (earlier == ForgetEarlier)
            events.clear();
        loop.quit();
    });
    Wait(QStringLiteral("the service's answer"), QDeadlineTimer::Forever, [&] { return answered; });
    if (answer.isError())
        throw Explain(answer.error());
}

void Phone::RequireSuccess(int status)
{
    if (status != StatusCodeSuccess)
        throw Failure{ExitRefused, QStringLiteral("%1: %2").arg(status).arg(StatusCodeMeaning(status)), status};
}

PhoneState Phone::State(Earlier earlier)
{
    const auto reply = proxy.GetStatus();
    AwaitAnswer(reply, earlier);
    RequireSuccess(reply.argumentAt<0>());
    return {reply.argumentAt<1>(), reply.argumentAt<2>(), reply.argumentAt<3>(), reply.argumentAt<4>() != 0,
            reply.argumentAt<5>()};
}

std::optional<PhoneEvent> Phone::Next(const QString& awaited, int quietMs)
{
    const auto until = quietMs < 0 ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(quietMs);
    if (!Wait(awaited, until, [this] { return HasEvent(); }))
        return {};
    return events.takeFirst();
}
