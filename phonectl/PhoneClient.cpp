#include "PhoneClient.h"

#include "BusLoss.h"
#include "Meanings.h"
#include "Names.h"
#include "PhoneCodes.h"
#include "SignalInput.h"
#include "TimeLimits.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>

#include <algorithm>
#include <csignal>
#include <poll.h>
#include <unistd.h>

namespace
{

/// Longer than the service can be blocked by this request and the one before: switching the modem off takes up to 60 s,
/// a message 20 s, a call with its audio 45 s.
constexpr int AnswerTimeoutMs = 300000;
constexpr int GsmTimeoutMs = TimeLimits::GsmCallMs + 5000;

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

PhoneClient::PhoneClient(const Arguments& arguments, Progress& progress)
    : progress(progress),
      userTimeoutMs(arguments.TimeoutMs()),
      deadline(userTimeoutMs ? QDeadlineTimer(userTimeoutMs) : QDeadlineTimer(QDeadlineTimer::Forever)),
      interruptFd(HoldSignals({SIGINT})),
      interrupt(interruptFd, QSocketNotifier::Read),
      proxy(Names::PhoneService, Names::PhoneObject, SessionBus()),
      watcher(Names::PhoneService, proxy.connection(), QDBusServiceWatcher::WatchForOwnerChange)
{
    proxy.setTimeout(AnswerTimeoutMs);
    ConnectBusLoss(proxy.connection(), this, SLOT(OnBusLost()));
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

void PhoneClient::OnBusLost()
{
    isBusLost = true;
    loop.quit();
}

PhoneClient::~PhoneClient()
{
    close(interruptFd);
}

void PhoneClient::Add(const PhoneEvent& event)
{
    events.append(event);
    loop.quit();
}

void PhoneClient::LimitTo(int seconds)
{
    if (!userTimeoutMs)
        deadline.setRemainingTime(seconds * 1000);
}

void PhoneClient::Unlimit()
{
    if (!userTimeoutMs)
        deadline = QDeadlineTimer(QDeadlineTimer::Forever);
}

/// Waits until isOver() returns true. @return false if that has not happened by the given time.
bool PhoneClient::Wait(const QString& awaited, QDeadlineTimer until, const std::function<bool()>& isOver)
{
    progress.Await(awaited);
    const QDeadlineTimer end = std::min(until, deadline);
    QTimer alarm;
    alarm.setSingleShot(true);
    alarm.setTimerType(Qt::PreciseTimer);
    connect(&alarm, &QTimer::timeout, &loop, &QEventLoop::quit);
    while (!isOver() && !interrupted && !isBusLost && !end.hasExpired()) {
        if (!end.isForever())
            alarm.start(static_cast<int>(end.remainingTime()));
        loop.exec();
    }
    progress.Await({});

    if (isOver())
        return true;
    if (isBusLost)
        throw Failure{ExitNotOnBus, QStringLiteral("the session bus is gone")};
    if (interrupted)
        throw Failure{ExitInterrupted, QStringLiteral("no longer waiting for %1; the operation goes on").arg(awaited)};
    if (deadline.hasExpired())
        throw Failure{ExitTimedOut, QStringLiteral("timed out waiting for %1; the operation goes on").arg(awaited)};
    return false;
}

void PhoneClient::Await(const QDBusPendingCall& call, const QString& awaited, const std::function<void()>& onAnswer)
{
    bool answered = false;
    QDBusPendingCallWatcher answer(call);
    connect(&answer, &QDBusPendingCallWatcher::finished, this, [&] {
        answered = true;
        onAnswer();
        loop.quit();
    });
    Wait(awaited, QDeadlineTimer::Forever, [&] { return answered; });
}

void PhoneClient::AwaitAnswer(const QDBusPendingCall& call, Earlier earlier)
{
    Await(call, QStringLiteral("the service's answer"), [&] {
        if (earlier == ForgetEarlier)
            events.clear();
    });
    if (call.isError())
        throw Explain(call.error());
}

void PhoneClient::RequireSuccess(int status) const
{
    if (status != StatusCodeSuccess)
        throw Failure{ExitRefused,
                      QStringLiteral("%1: %2").arg(status).arg(StatusCodeMeaning(status, IsOnBus(Names::GsmService))),
                      status};
}

bool PhoneClient::IsOnBus(const char* service) const
{
    return proxy.connection().interface()->isServiceRegistered(QLatin1String(service));
}

GsmProxy& PhoneClient::Gsm()
{
    if (!gsm) {
        gsm = std::make_unique<GsmProxy>(Names::GsmService, Names::GsmObject, proxy.connection());
        gsm->setTimeout(GsmTimeoutMs);
        const auto onEnd = [this] { Add({PhoneEvent::CallEndedBelow}); };
        connect(gsm.get(), &GsmProxy::CallRejected, this, onEnd);
        connect(gsm.get(), &GsmProxy::CallTerminated, this, onEnd);
    }
    return *gsm;
}

bool PhoneClient::Confirm(const QString& question)
{
    if (!isatty(STDIN_FILENO))
        return false;
    if (!TakeSignals(interruptFd))
        return false;
    std::fputs(question.toUtf8().constData(), stderr);
    pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {interruptFd, POLLIN, 0}};
    char answer = 'n';
    if (poll(sources, std::size(sources), -1) > 0 && sources[1].revents == 0 && read(STDIN_FILENO, &answer, 1) == 1 &&
        (answer == 'y' || answer == 'Y')) {
        interrupted = false;
        interrupt.setEnabled(true);
        return true;
    }
    std::fputs("\n", stderr);
    return false;
}

PhoneState PhoneClient::State(Earlier earlier)
{
    const auto reply = proxy.GetStatus();
    AwaitAnswer(reply, earlier);
    RequireSuccess(reply.argumentAt<0>());
    return {reply.argumentAt<1>(), reply.argumentAt<2>(), reply.argumentAt<3>(), reply.argumentAt<4>() != 0,
            reply.argumentAt<5>()};
}

std::optional<PhoneEvent> PhoneClient::Next(const QString& awaited, int quietMs)
{
    const auto until = quietMs < 0 ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(quietMs);
    if (!Wait(awaited, until, [this] { return HasEvent(); }))
        return {};
    return events.takeFirst();
}
