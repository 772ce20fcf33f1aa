#include "Gsm.h"

#include "Connections.h"
#include "GsmProxy.h"
#include "QtCompat.h"
#include "TimeLimits.h"
#include "common_qdbus.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>

Gsm& Gsm::Instance()
{
    static Gsm instance;
    return instance;
}

Gsm::Gsm()
    : valid(false),
      ready(false),
      modemStatus(ModemStatusOff),
      signalQuality(0),
      gsmdWatcher(nullptr),
      gsmProxy(nullptr)
{
    try {
        LOG(LogLevelProgress, "Creating Gsm service manager");

        QDBusConnection bus = QDBusConnection::sessionBus();
        gsmdWatcher = new QDBusServiceWatcher(
            Names::GsmService, bus,
            QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration, this);
        if (!ConnectAll(gsmdWatcher, this,
                        {{SIGNAL(serviceRegistered(QString)), SLOT(OnGsmdRegistered(QString))},
                         {SIGNAL(serviceUnregistered(QString)), SLOT(OnGsmdUnregistered(QString))}})) {
            LOG(LogLevelError, "FATAL: impossible to create Gsmd dbus watcher");
            throw QtConcurrent::Exception();
        }

        if (bus.interface()->isServiceRegistered(Names::GsmService))
            OnGsmdRegistered();

        LOG(LogLevelProgress, "Gsm service manager created");
        valid = true;
    } catch (...) {
        LOG(LogLevelProgress, "FATAL: Gsm service manager creation error");
    }
}

// Runs at exit, when the other singletons, which were created later, are already destroyed. After a failed start,
// PhoneManager still exists and receives Failed(): OnGsmFailed() must not use those singletons unless there is a call.
Gsm::~Gsm()
{
    delete gsmdWatcher;
    DestroyGsmProxy();
}

bool Gsm::GetModemStatus(int& status) const
{
    status = modemStatus;
    return true;
}

bool Gsm::GetSignalQuality(unsigned int& quality) const
{
    quality = signalQuality;
    return true;
}

// The daemon's presence

void Gsm::OnGsmdRegistered(QString)
{
    LOG(LogLevelProgress, "Gsmd registered to DBus");
    InstanceGsmProxy();
}

void Gsm::OnGsmdUnregistered(QString)
{
    LOG(LogLevelWarning, "Gsmd unregistered from DBus");
    DestroyGsmProxy();
}

void Gsm::InstanceGsmProxy()
{
    if (gsmProxy)
        return;

    LOG(LogLevelProgress, "Creating gsm proxy");
    gsmProxy = new GsmProxy(Names::GsmService, Names::GsmObject, QDBusConnection::sessionBus());

    if (gsmProxy->isValid() &&
        ConnectAll(gsmProxy, this,
                   {{SIGNAL(ModemPowered()), SLOT(OnGsmModemPowered())},
                    {SIGNAL(ModemRegistered()), SLOT(OnGsmModemRegistered())},
                    {SIGNAL(SignalQuality(uchar)), SLOT(OnGsmSignalQuality(uchar))},
                    {SIGNAL(ModemOff()), SLOT(OnGsmModemOff())},
                    {SIGNAL(CallIncoming(QVariantMap)), SLOT(OnGsmCallIncoming(QVariantMap))},
                    {SIGNAL(CallAnswered(QVariantMap)), SLOT(OnGsmCallAnswered(QVariantMap))},
                    {SIGNAL(CallTerminated(QVariantMap)), SLOT(OnGsmCallTerminated(QVariantMap))},
                    {SIGNAL(CallRejected(QVariantMap)), SLOT(OnGsmCallRejected(QVariantMap))},
                    {SIGNAL(MessageReceived(QString, QVariantMap)), SLOT(OnGsmSmsRecevice(QString, QVariantMap))}})) {
        ready = true;
        LOG(LogLevelProgress, "Gsmd attached");
        Q_EMIT Ready();
    } else {
        // Keep the useless proxy until the daemon leaves the bus: another try on the same daemon would fail again.
        LOG(LogLevelError, "Error creating gsm proxy");
    }
}

void Gsm::DestroyGsmProxy()
{
    if (!gsmProxy)
        return;

    LOG(LogLevelWarning, "Destroying gsm proxy");
    delete gsmProxy;
    gsmProxy = nullptr;
    ready = false;

    LOG(LogLevelWarning, "Gsmd detached");
    Q_EMIT Failed();
}

// The daemon's signals

void Gsm::OnGsmModemPowered()
{
    modemStatus = ModemStatusOn;
    Q_EMIT ModemOn();
}

void Gsm::OnGsmModemRegistered()
{
    modemStatus = ModemStatusRegistered;
    Q_EMIT ModemRegistered();
}

void Gsm::OnGsmModemOff()
{
    modemStatus = ModemStatusOff;
    Q_EMIT ModemOff();
}

void Gsm::OnGsmSignalQuality(uchar quality)
{
    signalQuality = quality;
    Q_EMIT SignalQuality(quality);
}

void Gsm::OnGsmCallIncoming(QVariantMap CallInfo)
{
    Q_EMIT CallIncoming(CallInfo);
}

void Gsm::OnGsmCallAnswered(QVariantMap CallInfo)
{
    Q_EMIT CallAnswered(CallInfo);
}

void Gsm::OnGsmCallTerminated(QVariantMap)
{
    Q_EMIT CallTerminated();
}

void Gsm::OnGsmCallRejected(QVariantMap)
{
    Q_EMIT CallRejected();
}

void Gsm::OnGsmSmsRecevice(QString Text, QVariantMap Info)
{
    Q_EMIT MessageReceived(Text, Info);
}

// Commands

template <typename Issue>
bool Gsm::Command(const char* method, const QByteArray& request, int timeoutMs, Issue issue,
                  const std::source_location& where)
{
    if (!ready) {
        // Readers of the log expect this line under the sound manager's path.
        LogAt(where, LogLevelError, Names::SoundManagerObject, "Gsm is not ready");
        return false;
    }

    gsmProxy->setTimeout(timeoutMs);
    const bool success = FinishCall(QStringLiteral("Gsmd->") + method, issue());
    LOG_AT(where, success ? LogLevelRequest : LogLevelWarning, "Gsmd->%s request %s", request.constData(),
           success ? "success" : "failed");
    return success;
}

bool Gsm::PingRegistration()
{
    return Command("PingRegistration", "PingRegistration()", TimeLimits::GsmShortMs,
                   [this] { return QDBusReply<int>(gsmProxy->PingRegistration()); });
}

bool Gsm::IsSimPresent(bool& present)
{
    return Command("IsSimPresent", "IsSimPresent()", TimeLimits::GsmShortMs,
                   [&] { return gsmProxy->IsSimPresent(present); });
}

bool Gsm::Answer()
{
    return Command("CallAnswer", "CallAnswer()", TimeLimits::GsmCallMs, [this] { return gsmProxy->CallAnswer(); });
}

bool Gsm::HangupAll()
{
    return Command("CallHangupAll", "CallHangupAll()", TimeLimits::GsmCallMs,
                   [this] { return gsmProxy->CallHangupAll(); });
}

bool Gsm::Hangup()
{
    return Command("CallHangup", "CallHangup()", TimeLimits::GsmCallMs, [this] { return gsmProxy->CallHangup(); });
}

bool Gsm::SetGprsApn(const QString& apn, const QString& username, const QString& password)
{
    const QByteArray arguments = apn.toLocal8Bit() + ',' + username.toLocal8Bit() + ',' + password.toLocal8Bit();
    return Command("GprsSetApn", "GprsSetApn(" + arguments + ')', TimeLimits::GsmShortMs,
                   [&] { return gsmProxy->GprsSetApn(apn, username, password); });
}

bool Gsm::Call(const QString& number)
{
    return Command("Call", "Call(" + number.toLocal8Bit() + ')', TimeLimits::GsmCallMs,
                   [&] { return gsmProxy->Call(number); });
}

bool Gsm::SendSms(const QString& recipient, const QString& text)
{
    return Command("SendSms", "SendSms()", TimeLimits::GsmSmsMs, [&] { return gsmProxy->SendSms(recipient, text); });
}

bool Gsm::SetEnabled(bool enable)
{
    const std::source_location where = std::source_location::current();
    const QByteArray request = "ModemSetEnabled(" + QByteArray::number(enable) + ')';
    return Command("ModemSetEnabled", request, enable ? TimeLimits::GsmShortMs : TimeLimits::GsmPowerOffMs, [&] {
        const QDBusPendingReply<int> reply = gsmProxy->ModemSetEnabled(enable);
        LOG_AT(where, LogLevelProgress, "Gsmd->%s requested", request.constData());
        return reply;
    });
}
