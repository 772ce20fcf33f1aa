#include "SleepGuard.h"

#include "Log.h"
#include "PhoneCodes.h"

#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFile>
#include <QStandardPaths>

namespace
{

constexpr char LogindService[] = "org.freedesktop.login1";
constexpr char LogindObject[] = "/org/freedesktop/login1";

/// The service may be blocked for a minute by a call to the GSM daemon.
constexpr int AnswerMs = 90000;
constexpr int LogindAnswerMs = 5000;
/// logind does not wait that long: its InhibitDelayMaxSec expires earlier.
constexpr int OffMs = 60000;
constexpr int RetryMs = 5000;

/// The positions of GetStatus's outputs in its answer.
enum StatusOutput : int { StatusOutputPhone = 1, StatusOutputForced = 5 };

/// The file exists while this program holds the phone off. Like the service's own record of that, it does not survive a
/// reboot.
QString MarkPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) +
           QLatin1String("/kova-suspend.holds-phone-off");
}

bool IsAnswer(const QDBusMessage& message)
{
    return message.type() == QDBusMessage::ReplyMessage;
}

/// @param answer to ForcePhoneOff. @return an empty text after a success.
QString WhyFailed(const QDBusMessage& answer)
{
    if (!IsAnswer(answer))
        return answer.errorMessage();
    const QVariant status = answer.arguments().value(0);
    return status == QVariant(int(StatusCodeSuccess)) ? QString() : QStringLiteral("status %1").arg(status.toString());
}

}

SleepGuard::SleepGuard(const QDBusConnection& systemBus, const QDBusConnection& sessionBus)
    : logind(QLatin1String(LogindService), QLatin1String(LogindObject), systemBus),
      phone(QLatin1String(Names::PhoneService), QLatin1String(Names::PhoneObject), sessionBus),
      logindWatcher(QLatin1String(LogindService), systemBus, QDBusServiceWatcher::WatchForRegistration)
{
    logind.setTimeout(LogindAnswerMs);
    phone.setTimeout(AnswerMs);
    offTimer.setSingleShot(true);
    offTimer.setInterval(OffMs);
    releaseRetryTimer.setSingleShot(true);
    releaseRetryTimer.setInterval(RetryMs);

    connect(&logind, &LogindProxy::PrepareForSleep, this, &SleepGuard::OnPrepareForSleep);
    connect(&logindWatcher, &QDBusServiceWatcher::serviceRegistered, this, &SleepGuard::Inhibit);
    connect(&phone, &PhoneProxy::PhoneStatus, this, &SleepGuard::OnPhoneStatus);
    connect(&offTimer, &QTimer::timeout, this, [this] {
        LOG(LogLevelWarning, "The modem is not off after %d s", OffMs / 1000);
        LetSleep();
    });
    connect(&releaseRetryTimer, &QTimer::timeout, this, &SleepGuard::Release);
}

void SleepGuard::Start()
{
    if (logind.preparingForSleep())
        state = State::Asleep;
    else
        Inhibit();
    if (state == State::Awake && QFile::exists(MarkPath()))
        Release();
}

/// Delays the next sleep.
void SleepGuard::Inhibit()
{
    if (state != State::Awake)
        return;
    const auto call = logind.Inhibit(QStringLiteral("sleep"), QStringLiteral("kova-suspend"),
                                     QStringLiteral("The phone is switched off first"), QStringLiteral("delay"));
    auto* answer = new QDBusPendingCallWatcher(call, this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
        answer->deleteLater();
        const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *answer;
        if (reply.isError())
            LOG(LogLevelError, "Can't delay the sleep: %s", qPrintable(reply.error().message()));
        else if (state == State::Awake)
            inhibitor = reply.value();
    });
}

void SleepGuard::OnPrepareForSleep(bool start)
{
    if (!start) {
        const bool slept = state != State::Awake;
        state = State::Awake;
        offTimer.stop();
        if (slept)
            Inhibit();
        if (QFile::exists(MarkPath()))
            Release();
        return;
    }
    if (state != State::Awake)
        return;
    releaseRetryTimer.stop();
    // Without the service the modem is off. Do not start the service for this.
    if (!phone.connection().interface()->isServiceRegistered(QLatin1String(Names::PhoneService))) {
        LetSleep();
        return;
    }
    state = State::Asking;
    Ask([this] { return phone.GetStatus(); }, &SleepGuard::OnAsked);
}

template <class Call>
void SleepGuard::Ask(const Call& call, void (SleepGuard::*answered)(const QDBusMessage&))
{
    auto* answer = new QDBusPendingCallWatcher(call(), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [=, this] {
        answer->deleteLater();
        (this->*answered)(answer->reply());
    });
}

void SleepGuard::OnAsked(const QDBusMessage& status)
{
    if (state != State::Asking)
        return;
    const bool known = IsAnswer(status);
    // The mark may be left from an earlier sleep, after which the phone could not be released yet.
    const bool ours = QFile::exists(MarkPath());
    if (!known) {
        LOG(LogLevelError, "The phone service does not answer: %s", qPrintable(status.errorMessage()));
        LetSleep();
    } else if (status.arguments().value(StatusOutputForced).toBool() && !ours) {
        LOG(LogLevelProgress, "The phone is held off already");
        LetSleep();
    } else {
        Force();
    }
}

void SleepGuard::Force()
{
    QFile mark(MarkPath());
    if (!mark.open(QIODevice::WriteOnly))
        LOG(LogLevelWarning, "Can't write %s: %s", qPrintable(mark.fileName()), qPrintable(mark.errorString()));
    LOG(LogLevelProgress, "The device is going to sleep: phone off");
    state = State::Forcing;
    offTimer.start();
    Ask([this] { return phone.ForcePhoneOff(true); }, &SleepGuard::OnForced);
}

void SleepGuard::OnForced(const QDBusMessage& answer)
{
    if (state != State::Forcing)
        return;
    if (const QString problem = WhyFailed(answer); !problem.isEmpty()) {
        LOG(LogLevelError, "The phone could not be switched off: %s", qPrintable(problem));
        LetSleep();
        return;
    }
    // The modem may already be off. Otherwise its signal follows.
    state = State::Waiting;
    Ask([this] { return phone.GetStatus(); }, &SleepGuard::OnOffAsked);
}

void SleepGuard::OnOffAsked(const QDBusMessage& status)
{
    if (IsAnswer(status))
        OnPhoneStatus(status.arguments().value(StatusOutputPhone).toUInt());
}

void SleepGuard::OnPhoneStatus(uint status)
{
    if (state == State::Waiting && status == ModemStatusOff)
        LetSleep();
}

void SleepGuard::LetSleep()
{
    state = State::Asleep;
    offTimer.stop();
    inhibitor = QDBusUnixFileDescriptor();
}

/// Releases the phone, and keeps trying until that succeeds.
void SleepGuard::Release()
{
    releaseRetryTimer.stop();
    Ask([this] { return phone.ForcePhoneOff(false); }, &SleepGuard::OnReleased);
}

void SleepGuard::OnReleased(const QDBusMessage& answer)
{
    // The device is about to sleep again and needs the mark.
    if (state != State::Awake)
        return;
    if (const QString problem = WhyFailed(answer); !problem.isEmpty()) {
        LOG(LogLevelError, "The phone could not be released: %s", qPrintable(problem));
        releaseRetryTimer.start();
        return;
    }
    LOG(LogLevelProgress, "The device is awake: phone released");
    QFile::remove(MarkPath());
}
