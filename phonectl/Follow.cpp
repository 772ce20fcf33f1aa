#include "Follow.h"

#include "Names.h"
#include "PhoneCodes.h"
#include "TimeLimits.h"

#include <algorithm>

namespace
{

/// The service power-cycles a modem that does not register in time. Allow for a second try.
constexpr int BringUpLimitS = 2 * TimeLimits::PowerToRegisteredMs / 1000 + 40;
constexpr int PowerOffLimitS = 120;
/// The longest time for one number: dialling 15 s, audio 20 s, ringing 30 s, hanging up 15 s.
constexpr int LoopStepLimitS = 90;
/// While the modem is registered, a queue that is not empty sends a message each second.
constexpr int QueueQuietMs = 1500;
/// A modem stack reports the end of a call some seconds after it was hung up.
constexpr int HangUpLimitMs = 5000;

/// Waits for the next event. Throws a Failure if the service leaves the bus.
PhoneEvent NextEvent(PhoneClient& phone, const QString& awaited)
{
    const PhoneEvent event = *phone.Next(awaited);
    if (event.kind == PhoneEvent::ServiceLeft)
        throw Failure{ExitNotOnBus,
                      QStringLiteral("the phone service left the bus, while waiting for %1").arg(awaited)};
    return event;
}

/// Throws a Failure if the loop has ended.
/// @param wasOff whether the modem was off at the start of the loop.
/// @return the reason, to be shown after the number.
QString WhyNotDialled(PhoneClient& phone, bool wasOff)
{
    const PhoneState state = phone.State(PhoneClient::KeepEarlier);
    if (!phone.IsOnBus(Names::GsmService))
        throw Failure{ExitRefused, QStringLiteral("the GSM daemon is not on the bus, which ends the loop")};
    if (state.phoneStatus == ModemStatusOff && !wasOff)
        throw Failure{ExitRefused, QStringLiteral("the modem went off, which ended the loop")};
    if (state.simStatus != SimStatusPresent)
        return QStringLiteral("was not dialled: no SIM card is known");
    if (state.phoneStatus != ModemStatusRegistered)
        return QStringLiteral("was not dialled: the modem is not registered to the network");
    return QStringLiteral("could not be dialled: the GSM daemon refused it, or the call had no sound");
}

}

void FollowOn(PhoneClient& phone, Progress& progress)
{
    phone.LimitTo(BringUpLimitS);
    const PhoneState state = phone.State();
    if (state.forced)
        throw Failure{ExitRefused,
                      QStringLiteral("the modem stays off, it is forced off; 'phonectl force-off off' lets go")};

    bool powered = state.phoneStatus != ModemStatusOff;
    bool checked = state.simStatus == SimStatusPresent;
    if (powered)
        progress.Step("powered", QStringLiteral("the modem is powered"));
    if (powered && checked)
        progress.Step("sim", QStringLiteral("the SIM card is present"));
    bool registered = state.phoneStatus == ModemStatusRegistered && checked;
    while (!registered) {
        const PhoneEvent event = NextEvent(phone, !powered   ? QStringLiteral("the modem to power up")
                                                  : !checked ? QStringLiteral("the SIM check, 20 s after power-up")
                                                             : QStringLiteral("the network"));
        if (event.kind == PhoneEvent::PhoneStatus) {
            registered = event.value == ModemStatusRegistered;
            powered = event.value != ModemStatusOff;
            if (!registered)
                progress.Step(powered ? "powered" : "off",
                              powered ? QStringLiteral("the modem is powered") : QStringLiteral("the modem is off"));
        } else if (event.kind == PhoneEvent::SimPresent) {
            checked = event.flag;
            if (!checked)
                throw Failure{ExitRefused, QStringLiteral("there is no SIM card; the service keeps looking for one, "
                                                          "switching the modem off and on")};
            progress.Step("sim", QStringLiteral("the SIM card is present"));
        }
    }
    progress.Step("registered", QStringLiteral("registered to the network"));
}

void FollowOff(PhoneClient& phone, Progress& progress)
{
    phone.LimitTo(PowerOffLimitS);
    bool off = phone.State().phoneStatus == ModemStatusOff;
    while (!off) {
        const PhoneEvent event = NextEvent(
            phone, QStringLiteral("the modem to go off (unless forced off it stays on for a data connection)"));
        off = event.kind == PhoneEvent::PhoneStatus && event.value == ModemStatusOff;
    }
    progress.Step("off", QStringLiteral("the modem is off"));
}

// The service does not say under which number it has queued the message. But it sends messages in the order of the
// queue, reports each once, and sends one a second while the modem is registered. So wait until reports have arrived
// and then stopped while registered: this message's report is among them. GetStatus confirms the stop, because the
// service has one thread and answers only after a send in progress. If all reports agree, the result is clear. If
// other clients queue messages at the same time, the reports may differ, and this message's cannot be identified.
QJsonObject FollowSms(PhoneClient& phone, Progress& progress, const QString& size)
{
    progress.Step("queued", QStringLiteral("queued") + size);
    QList<PhoneEvent> reports;
    uint modem = phone.State(PhoneClient::KeepEarlier).phoneStatus;
    while (true) {
        const QString awaited =
            modem != ModemStatusRegistered
                ? modem == ModemStatusOff
                      ? QStringLiteral("the modem, which is off, to be switched on by something else")
                      : QStringLiteral("the network")
            : reports.isEmpty() ? QStringLiteral("the message to be sent")
                                : QStringLiteral("further messages of the queue");
        if (const auto event = phone.Next(awaited, reports.isEmpty() ? -1 : QueueQuietMs)) {
            if (event->kind == PhoneEvent::ServiceLeft)
                throw Failure{ExitNotOnBus, QStringLiteral("the phone service left the bus, and forgot the message if "
                                                           "it was still queued")};
            if (event->kind == PhoneEvent::PhoneStatus)
                modem = event->value;
            if (event->kind != PhoneEvent::SmsSent)
                continue;
            reports.append(*event);
            progress.Step(event->flag ? "sent" : "lost", QStringLiteral("message %1 of the queue was %2")
                                                             .arg(event->value)
                                                             .arg(QLatin1String(event->flag ? "sent" : "lost")));
            continue;
        }
        modem = phone.State(PhoneClient::KeepEarlier).phoneStatus;
        if (!phone.HasEvent() && modem == ModemStatusRegistered)
            break;
    }

    const auto sent =
        std::count_if(reports.begin(), reports.end(), [](const PhoneEvent& report) { return report.flag; });
    if (sent == 0)
        throw Failure{ExitRefused,
                      QStringLiteral("the message is lost: the GSM daemon or the network did not accept it, "
                                     "and it is not sent again")};
    if (sent < reports.size())
        throw Failure{ExitRefused, QStringLiteral("%1 of the %2 messages that were queued together are lost; it is "
                                                  "unknown whether this is one of them")
                                       .arg(reports.size() - sent)
                                       .arg(reports.size())};
    QJsonObject details;
    if (reports.size() == 1)
        details.insert(QStringLiteral("identifier"), static_cast<qint64>(reports.first().value));
    return details;
}

QJsonObject FollowCall(PhoneClient& phone, Progress& progress, const QString& number)
{
    progress.Step("dialling", QStringLiteral("dialling %1").arg(Printable(number)));
    bool answered = false;
    bool endedBelow = false;
    while (true) {
        const PhoneEvent event =
            NextEvent(phone, answered ? QStringLiteral("the end of the call") : QStringLiteral("an answer"));
        endedBelow |= event.kind == PhoneEvent::CallEndedBelow;
        if (event.kind != PhoneEvent::VoiceCall)
            continue;
        if (event.value == VoiceCallStatusAnswered) {
            answered = true;
            progress.Step("answered", QStringLiteral("answered"));
        } else if (event.value == VoiceCallStatusTerminated && answered) {
            progress.Step("ended", QStringLiteral("the call has ended"));
            return {};
        } else if (event.value == VoiceCallStatusTerminated) {
            throw Failure{ExitRefused, endedBelow
                                           ? QStringLiteral("the call was not answered: it was rejected, could not be "
                                                            "connected, or nobody answered within 30 s")
                                           : QStringLiteral("the call was lost: the modem went off, or the GSM daemon "
                                                            "left the bus")};
        }
    }
}

QJsonObject FollowCallLoop(PhoneClient& phone, Progress& progress, const QStringList& numbers)
{
    // The loop starts 2 s after the request. A call that it replaced has ended before the answer to this.
    const bool wasOff = phone.State().phoneStatus == ModemStatusOff;
    QString answeredBy;
    bool endedBelow = false;
    auto number = numbers.begin();
    const auto report = [&](const char* event, const QString& text) {
        progress.Step(event, text.arg(Printable(*number)));
    };
    report("dialling", QStringLiteral("dialling %1"));
    while (true) {
        if (answeredBy.isEmpty())
            phone.LimitTo(LoopStepLimitS);
        const PhoneEvent event =
            NextEvent(phone, answeredBy.isEmpty() ? QStringLiteral("an answer (a number that does not answer is "
                                                                   "hung up after 30 s)")
                                                  : QStringLiteral("the end of the call"));
        endedBelow |= event.kind == PhoneEvent::CallEndedBelow;
        if (event.kind != PhoneEvent::VoiceCall)
            continue;
        if (event.value == VoiceCallStatusAnswered) {
            answeredBy = *number;
            phone.Unlimit();
            report("answered", QStringLiteral("%1 answered"));
        } else if (event.value == VoiceCallStatusTerminated && !answeredBy.isEmpty()) {
            progress.Step("ended", QStringLiteral("the call has ended"));
            return {{QStringLiteral("number"), answeredBy}};
        } else if (event.value == VoiceCallStatusTerminated) {
            // The GSM daemon reports the end of each call that it has placed. Without a report, nothing was dialled.
            if (endedBelow)
                report("unanswered", QStringLiteral("%1 did not answer"));
            else
                report("undialled", QStringLiteral("%1 ") + WhyNotDialled(phone, wasOff));
            endedBelow = false;
            if (++number == numbers.end())
                throw Failure{ExitRefused, QStringLiteral("none of the numbers answered")};
            report("dialling", QStringLiteral("dialling %1"));
        }
    }
}

int HangUp(PhoneClient& phone, Progress& progress)
{
    const bool isServed = phone.IsOnBus(Names::PhoneService);
    int ended = 0;
    while (true) {
        phone.ForgetEvents();
        const auto answer = phone.Gsm().CallHangup();
        phone.Await(answer, QStringLiteral("the GSM daemon's answer"));
        if (answer.isError() && answer.error().type() == QDBusError::ServiceUnknown)
            throw Failure{ExitNotOnBus, QStringLiteral("the GSM daemon, which would hang up, is not on the bus; when "
                                                       "it left, the phone service ended its calls")};
        if (answer.isError())
            throw Failure{ExitRefused, QStringLiteral("the GSM daemon did not hang up: ") + answer.error().message()};
        if (answer.argumentAt<0>() != StatusCodeSuccess && ended == 0)
            throw Failure{ExitRefused, QStringLiteral("the GSM daemon has no call to hang up, or refused (status %1)")
                                           .arg(answer.argumentAt<0>())};
        if (answer.argumentAt<0>() != StatusCodeSuccess || !isServed)
            return ended;

        // Make sure that a call loop has dialled its next number: the service answers only after that.
        phone.State(PhoneClient::KeepEarlier);
        std::optional<PhoneEvent> event;
        do {
            event = phone.Next(QStringLiteral("the end of the call"), HangUpLimitMs);
        } while (event && (event->kind != PhoneEvent::VoiceCall || event->value != VoiceCallStatusTerminated));
        if (!event && ended == 0)
            throw Failure{ExitRefused, QStringLiteral("the GSM daemon took the request, but no call has ended")};
        if (!event)
            return ended;
        ++ended;
        progress.Step("ended", QStringLiteral("the call has ended"));
        phone.State(PhoneClient::KeepEarlier);
    }
}
