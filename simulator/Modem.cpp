#include "Modem.h"

#include <algorithm>

Modem::Modem(const DeviceTimes& times) : times(times)
{
    for (QTimer* timer : {&transition, &farEndTimer})
        timer->setSingleShot(true);
    connect(&transition, &QTimer::timeout, this, &Modem::OnTransition);
    connect(&signalTimer, &QTimer::timeout, this, &Modem::ReportSignal);
    connect(&farEndTimer, &QTimer::timeout, this, [this] {
        const Call* call = FindCall(Call::Dialling);
        const bool rejects = call && farEnds.value(call->number, FarEndAnswers) == FarEndRejects;
        rejects ? FarEndReject() : FarEndAnswer();
    });
}

// Power and registration

/// A request during a transition reverses it at once. Only the state that is finally reached is reported.
bool Modem::SetEnabled(bool enable)
{
    if (enable && !plugged)
        return false;
    if (enable && (power == Off || power == PoweringDown))
        SetPower(PoweringUp);
    else if (!enable && power != Off && power != PoweringDown)
        SetPower(PoweringDown);
    return true;
}

void Modem::SetPower(Power next)
{
    power = next;
    transition.stop();
    if (power != Registered)
        signalTimer.stop();

    switch (power) {
    case Off: HangupAll(EndPowerLost); break;
    case PoweringUp: transition.start(times.powerUp); break;
    case On:
    case Registered: break;
    case PoweringDown:
        HangupAll(EndNetworkLost);
        transition.start(times.powerDown);
        break;
    }

    Q_EMIT PowerChanged(power);
    if (power == On) {
        UpdateRegistration();
    } else if (power == Registered) {
        signalTimer.start(times.signalInterval);
        ReportSignal();
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

/// A powered modem registers as long as there are a SIM card and a network, and goes back to searching otherwise.
void Modem::UpdateRegistration()
{
    const bool canRegister = simInserted && networkFound;
    if (power == On && canRegister && !transition.isActive())
        transition.start(times.registration);
    else if (power == On && !canRegister)
        transition.stop();
    else if (power == Registered && !canRegister) {
        HangupAll(EndNetworkLost);
        SetPower(On);
    }
}

void Modem::ReportSignal()
{
    if (power == Registered && !silent)
        Q_EMIT SignalMeasured(signalQuality);
}

void Modem::SetSim(bool inserted)
{
    const bool changed = simInserted != inserted;
    simInserted = inserted;
    if (changed)
        Q_EMIT SimChanged(inserted);
    UpdateRegistration();
}

void Modem::SetNetwork(bool found)
{
    networkFound = found;
    UpdateRegistration();
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
    Q_EMIT PowerLost();
    return {};
}

QString Modem::SetPlugged(bool plugged)
{
    if (this->plugged == plugged)
        return QStringLiteral("the modem is %1 already").arg(plugged ? "plugged in" : "unplugged");
    this->plugged = plugged;
    // Close the port first, because an unplugged modem reports nothing.
    Q_EMIT PluggedChanged(plugged);
    if (!plugged && power != Off)
        SetPower(Off);
    return {};
}

bool Modem::SetApn(const QString& name)
{
    if (power != On && power != Registered)
        return false;
    apn = name;
    return true;
}

// Calls and messages

Call* Modem::FindCall(Call::State state)
{
    const auto found = std::find_if(calls.begin(), calls.end(), [&](const Call& call) { return call.state == state; });
    return found == calls.end() ? nullptr : &*found;
}

void Modem::AddCall(Call::State state, const QString& number)
{
    Call call;
    call.id = !calls.isEmpty() && calls.first().id == 1 ? 2 : 1;
    call.outgoing = state == Call::Dialling;
    call.state = state;
    call.number = number;
    calls.append(call);
}

bool Modem::Dial(const QString& number)
{
    const FarEnd farEnd = farEnds.value(number, FarEndAnswers);
    if (power != Registered || !calls.isEmpty() || farEnd == FarEndUnreachable)
        return false;
    AddCall(Call::Dialling, number);
    if (farEnd != FarEndDoesNotAnswer)
        farEndTimer.start(times.answer);
    return true;
}

bool Modem::Answer()
{
    Call* call = FindCall(Call::Ringing);
    if (call)
        Connect(*call);
    return call;
}

void Modem::Connect(Call& call)
{
    farEndTimer.stop();
    call.state = Call::Active;
    call.answered = true;
    Q_EMIT CallAnswered(call);
}

void Modem::EndCall(int id, End why)
{
    const auto found = std::find_if(calls.begin(), calls.end(), [&](const Call& call) { return call.id == id; });
    if (found == calls.end())
        return;
    const Call ended = *found;
    calls.erase(found);
    if (ended.outgoing)
        farEndTimer.stop();
    Q_EMIT CallEnded(ended, why);
}

/// Lets the waiting call ring once the other one has ended.
void Modem::RingWaitingCall()
{
    if (Call* waiting = FindCall(Call::Waiting); waiting && calls.size() == 1) {
        waiting->state = Call::Ringing;
        Q_EMIT CallReceived(*waiting);
    }
}

bool Modem::Hangup(int id)
{
    const auto before = calls.size();
    EndCall(id, EndHangup);
    RingWaitingCall();
    return calls.size() != before;
}

bool Modem::SwitchToWaiting()
{
    const Call* active = FindCall(Call::Active);
    if (active)
        EndCall(active->id, EndHangup);
    if (Call* waiting = FindCall(Call::Waiting))
        Connect(*waiting);
    return active;
}

bool Modem::HangupAll(End why)
{
    const QList<Call> before = calls;
    for (const Call& call : before)
        EndCall(call.id, why);
    return !before.isEmpty();
}

bool Modem::SendSms()
{
    smsSent += power == Registered;
    return power == Registered;
}

void Modem::SetFarEnd(const QString& number, FarEnd behaviour)
{
    farEnds.insert(number, behaviour);
}

QString Modem::Ring(const QString& number)
{
    if (power != Registered)
        return QStringLiteral("the modem is not registered");
    const bool canWait = callWaiting && calls.size() == 1 && calls.first().state == Call::Active;
    if (!calls.isEmpty() && !canWait)
        return QStringLiteral("the line is busy: a call is in progress");
    AddCall(calls.isEmpty() ? Call::Ringing : Call::Waiting, number);
    Q_EMIT CallReceived(calls.last());
    return {};
}

QString Modem::FarEndAnswer()
{
    Call* call = FindCall(Call::Dialling);
    if (!call)
        return QStringLiteral("no call is being dialled");
    Connect(*call);
    return {};
}

QString Modem::FarEndReject()
{
    const Call* call = FindCall(Call::Dialling);
    if (!call)
        return QStringLiteral("no call is being dialled");
    EndCall(call->id, EndRejected);
    return {};
}

QString Modem::FarEndHangup()
{
    if (calls.isEmpty())
        return QStringLiteral("there is no call");
    EndCall(calls.first().id, EndFarEnd);
    RingWaitingCall();
    return {};
}

QString Modem::DeliverSms(const QString& number, const QString& text)
{
    if (power != Registered)
        return QStringLiteral("the modem is not registered");
    Q_EMIT MessageReceived(number, text);
    return {};
}

QVariantMap Modem::State() const
{
    static constexpr const char* powerNames[] = {"off", "powering up", "on", "registered", "powering down"};
    static constexpr const char* callNames[] = {"dialling", "ringing", "waiting", "active"};
    const Call call = calls.value(0);
    return {{"modem", plugged ? powerNames[power] : "unplugged"},
            {"sim", simInserted ? "in" : "out"},
            {"network", networkFound ? "found" : "lost"},
            {"signal", signalQuality},
            {"reports", silent ? "silent" : "normal"},
            {"call", calls.isEmpty() ? "none" : callNames[call.state]},
            {"number", call.number},
            {"waiting", calls.value(1).number},
            {"apn", apn},
            {"sms-sent", smsSent}};
}
