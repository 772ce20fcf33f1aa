#include "Modem.h"

#include <QDateTime>

namespace
{

constexpr int StatusRefused = 1; ///< what the modem cannot do now
constexpr char ModemPath[] = "/com/quillmark/kova/gsmmanager/modem0";

Answer Status(bool done)
{
    return {done ? 0 : StatusRefused};
}

}

Modem::Modem(BusService& daemon, const DeviceTimes& times) : daemon(daemon), times(times)
{
    for (QTimer* timer : {&transition, &farEndTimer})
        timer->setSingleShot(true);
    connect(&transition, &QTimer::timeout, this, &Modem::OnTransition);
    connect(&signalTimer, &QTimer::timeout, this, &Modem::ReportSignal);
    connect(&farEndTimer, &QTimer::timeout, this,
            [this] { farEnds.value(callNumber, FarEndAnswers) == FarEndRejects ? FarEndReject() : FarEndAnswer(); });
    connect(&daemon, &BusService::Joined, this, [this] { this->daemon.Send("ModemAdded", {ModemPath}); });
    HandleRequests();
}

void Modem::HandleRequests()
{
    daemon.Handle("ModemSetEnabled", [this](const QVariantList& arguments) {
        SetEnabled(arguments.at(0).toBool());
        return Answer();
    });
    daemon.Handle("ModemGetStatus", [this](const QVariantList&) {
        return Answer{0, {power == Registered ? 2 : power == On ? 1 : 0}};
    });
    daemon.Handle("IsSimPresent", [this](const QVariantList&) { return Answer{0, {simInserted}}; });
    daemon.Handle("PingRegistration", [this](const QVariantList&) { return Status(power == Registered); });
    daemon.Handle("SignalStrength", [this](const QVariantList&) {
        return Answer{power == Registered ? 0 : StatusRefused, {signalQuality}};
    });
    daemon.Handle("GprsSetApn", [this](const QVariantList& arguments) {
        if (power != On && power != Registered)
            return Status(false);
        apn = arguments.at(0).toString();
        return Status(true);
    });
    daemon.Handle("Call", [this](const QVariantList& arguments) { return Status(Dial(arguments.at(0).toString())); });
    daemon.Handle("CallAnswer", [this](const QVariantList&) {
        if (call != Ringing)
            return Status(false);
        ConnectCall();
        return Status(true);
    });
    daemon.Handle("CallHangup", [this](const QVariantList&) {
        const bool hadCall = call != NoCall;
        EndCall("CallTerminated");
        return Status(hadCall);
    });
    daemon.Handle("CallHangupAll", [this](const QVariantList&) {
        EndCall("CallTerminated");
        return Status(true);
    });
    daemon.Handle("SendSms", [this](const QVariantList&) {
        smsSent += power == Registered;
        return Status(power == Registered);
    });
}

// Power and registration

/// A modem that is told otherwise while it changes its power turns back at once, and reports only where it arrives.
void Modem::SetEnabled(bool enable)
{
    if (enable && (power == Off || power == PoweringDown))
        SetPower(PoweringUp);
    else if (!enable && power != Off && power != PoweringDown)
        SetPower(PoweringDown);
}

void Modem::SetPower(Power next)
{
    power = next;
    transition.stop();
    if (power != Registered)
        signalTimer.stop();

    switch (power) {
    case Off:
        EndCall(nullptr);
        daemon.Send("ModemOff");
        break;
    case PoweringUp: transition.start(times.powerUp); break;
    case On:
        daemon.Send("ModemPowered");
        FollowNetwork();
        break;
    case Registered:
        daemon.Send("ModemRegistered");
        signalTimer.start(times.signalInterval);
        ReportSignal();
        break;
    case PoweringDown:
        EndCall("CallTerminated");
        transition.start(times.powerDown);
        break;
    }
}

void Modem::OnTransition()
{
    switch (power) {
    case PoweringUp: SetPower(On); break;
    case On: SetPower(Registered); break;
    case PoweringDown: SetPower(Off); break;
    case Off:
    case Registered: break;
    }
}

/// A powered modem registers while there are a card and a network, and falls back to searching without.
void Modem::FollowNetwork()
{
    const bool canRegister = simInserted && networkFound;
    if (power == On && canRegister && !transition.isActive())
        transition.start(times.registration);
    else if (power == On && !canRegister)
        transition.stop();
    else if (power == Registered && !canRegister) {
        EndCall("CallTerminated");
        SetPower(On);
    }
}

void Modem::ReportSignal()
{
    if (power == Registered && !silent)
        daemon.Send("SignalQuality", {signalQuality});
}

void Modem::SetSim(bool inserted)
{
    simInserted = inserted;
    FollowNetwork();
}

void Modem::SetNetwork(bool found)
{
    networkFound = found;
    FollowNetwork();
}

void Modem::SetSilent(bool silent)
{
    this->silent = silent;
    ReportSignal();
}

void Modem::SetSignalQuality(uchar quality)
{
    signalQuality = quality;
    ReportSignal();
}

QString Modem::Drop()
{
    if (power == Off)
        return QStringLiteral("the modem is off");
    SetPower(Off);
    return {};
}

// Calls and messages

QVariantList Modem::CallInfo() const
{
    return {QVariantMap{{"LineIdentification", callNumber}}};
}

bool Modem::Dial(const QString& number)
{
    const FarEnd farEnd = farEnds.value(number, FarEndAnswers);
    if (power != Registered || call != NoCall || farEnd == FarEndUnreachable)
        return false;
    call = Dialling;
    callNumber = number;
    if (farEnd != FarEndDoesNotAnswer)
        farEndTimer.start(times.answer);
    return true;
}

void Modem::ConnectCall()
{
    farEndTimer.stop();
    call = Active;
    daemon.Send("CallAnswered", CallInfo());
}

/// @param signal how the daemon tells of it; a modem that loses its power tells nothing.
void Modem::EndCall(const char* signal)
{
    if (call == NoCall)
        return;
    farEndTimer.stop();
    call = NoCall;
    if (signal)
        daemon.Send(signal, CallInfo());
}

void Modem::SetFarEnd(const QString& number, FarEnd behaviour)
{
    farEnds.insert(number, behaviour);
}

/// @return why the network cannot reach the phone, if so.
QString Modem::WhyUnreachable() const
{
    if (!daemon.IsOnBus())
        return QStringLiteral("the GSM daemon is not on the bus");
    return power == Registered ? QString() : QStringLiteral("the modem is not registered");
}

QString Modem::Ring(const QString& number)
{
    if (const QString problem = WhyUnreachable(); !problem.isEmpty())
        return problem;
    if (call != NoCall)
        return QStringLiteral("a call is in progress");
    call = Ringing;
    callNumber = number;
    daemon.Send("CallIncoming", CallInfo());
    return {};
}

QString Modem::FarEndAnswer()
{
    if (call != Dialling)
        return QStringLiteral("no call is being dialled");
    ConnectCall();
    return {};
}

QString Modem::FarEndReject()
{
    if (call != Dialling)
        return QStringLiteral("no call is being dialled");
    EndCall("CallRejected");
    return {};
}

QString Modem::FarEndHangup()
{
    if (call == NoCall)
        return QStringLiteral("there is no call");
    EndCall("CallTerminated");
    return {};
}

QString Modem::DeliverSms(const QString& number, const QString& text)
{
    if (const QString problem = WhyUnreachable(); !problem.isEmpty())
        return problem;
    daemon.Send(
        "MessageReceived",
        {text, QVariantMap{{"Sender", number}, {"SentTime", QDateTime::currentDateTime().toString(Qt::ISODate)}}});
    return {};
}

QVariantMap Modem::State() const
{
    static constexpr const char* powerNames[] = {"off", "powering up", "on", "registered", "powering down"};
    static constexpr const char* callNames[] = {"none", "dialling", "ringing", "active"};
    return {{"modem", powerNames[power]},
            {"sim", simInserted ? "in" : "out"},
            {"network", networkFound ? "found" : "lost"},
            {"signal", signalQuality},
            {"reports", silent ? "silent" : "normal"},
            {"call", callNames[call]},
            {"number", call == NoCall ? QString() : callNumber},
            {"apn", apn},
            {"sms-sent", smsSent}};
}
