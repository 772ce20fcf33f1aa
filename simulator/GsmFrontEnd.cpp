#include "GsmFrontEnd.h"

#include "PeerCodes.h"

#include <QDateTime>

namespace
{

constexpr int StatusRefused = 1; ///< the modem cannot do this now
constexpr char ModemPath[] = "/com/quillmark/kova/gsmmanager/modem0";

Answer Status(bool done)
{
    return {done ? 0 : StatusRefused};
}

QVariantList CallInfo(const Call& call)
{
    return {QVariantMap{{LineIdentificationKey, call.number}}};
}

}

GsmFrontEnd::GsmFrontEnd(BusService& service, Modem& modem) : service(service), modem(modem)
{
    const auto announce = [this] {
        if (this->modem.IsPlugged())
            this->service.Send("ModemAdded", {ModemPath});
    };
    connect(&service, &BusService::Joined, this, announce);
    connect(&modem, &Modem::PluggedChanged, this, announce);
    connect(&modem, &Modem::PowerChanged, this, &GsmFrontEnd::ReportPower);
    connect(&modem, &Modem::SignalMeasured, this,
            [this](uchar quality) { this->service.Send("SignalQuality", {quality}); });
    connect(&modem, &Modem::CallReceived, this,
            [this](const Call& call) { this->service.Send("CallIncoming", CallInfo(call)); });
    connect(&modem, &Modem::CallAnswered, this,
            [this](const Call& call) { this->service.Send("CallAnswered", CallInfo(call)); });
    connect(&modem, &Modem::CallEnded, this, [this](const Call& call, Modem::End why) {
        if (why == Modem::EndPowerLost) // a modem without power reports nothing
            return;
        // An emergency loop moves on only when its call counts as rejected.
        const bool rejected = call.outgoing && !call.answered && why != Modem::EndHangupAll;
        this->service.Send(rejected ? "CallRejected" : "CallTerminated", CallInfo(call));
    });
    connect(&modem, &Modem::MessageReceived, this, [this](const QString& number, const QString& text) {
        this->service.Send(
            "MessageReceived",
            {text, QVariantMap{{"Sender", number}, {"SentTime", QDateTime::currentDateTime().toString(Qt::ISODate)}}});
    });
    AddHandlers();
}

void GsmFrontEnd::AddHandlers()
{
    service.Handle("ModemSetEnabled", [this](const QVariantList& arguments) {
        return Status(modem.SetEnabled(arguments.at(0).toBool()));
    });
    service.Handle("ModemGetStatus", [this](const QVariantList&) {
        const Modem::Power power = modem.PowerState();
        return Answer{0, {power == Modem::Registered ? 2 : power == Modem::On ? 1 : 0}};
    });
    service.Handle("IsSimPresent", [this](const QVariantList&) { return Answer{0, {modem.IsSimInserted()}}; });
    service.Handle("PingRegistration",
                   [this](const QVariantList&) { return Status(modem.PowerState() == Modem::Registered); });
    service.Handle("SignalStrength", [this](const QVariantList&) {
        return Answer{modem.PowerState() == Modem::Registered ? 0 : StatusRefused, {modem.SignalStrength()}};
    });
    service.Handle("GprsSetApn",
                   [this](const QVariantList& arguments) { return Status(modem.SetApn(arguments.at(0).toString())); });
    service.Handle("Call",
                   [this](const QVariantList& arguments) { return Status(modem.Dial(arguments.at(0).toString())); });
    service.Handle("CallAnswer", [this](const QVariantList&) { return Status(modem.Answer()); });
    service.Handle("CallHangup", [this](const QVariantList&) { return Status(modem.HangupAll(Modem::EndHangup)); });
    service.Handle("CallHangupAll", [this](const QVariantList&) {
        modem.HangupAll(Modem::EndHangupAll);
        return Status(true);
    });
    service.Handle("SendSms", [this](const QVariantList&) { return Status(modem.SendSms()); });
}

void GsmFrontEnd::ReportPower(Modem::Power power)
{
    switch (power) {
    case Modem::Off: service.Send("ModemOff"); break;
    case Modem::On: service.Send("ModemPowered"); break;
    case Modem::Registered: service.Send("ModemRegistered"); break;
    case Modem::PoweringUp:
    case Modem::PoweringDown: break;
    }
}
