#include "History.h"

#include "LogLevel.h"
#include "Meanings.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace
{

/// Larger steps mean that the clock was set: lines can be slightly out of order, and a device can sleep for days.
constexpr double LargestStepBack = 2;
constexpr double LargestStepAhead = 30 * 86400.0;

QString Text(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

bool Begins(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

/// The text in the first parentheses.
QString InParentheses(std::string_view text)
{
    const size_t start = text.find('(');
    const size_t end = text.find(')', start);
    return end == std::string_view::npos ? QString() : Text(text.substr(start + 1, end - start - 1));
}

int Number(std::string_view text)
{
    return std::atoi(std::string(text.substr(0, 10)).c_str());
}

}

/// What a line of the log means. The first rule whose text the line begins with applies.
struct History::Rule {
    std::string_view text;
    /// @param rest of the line, after the text.
    void (*apply)(History& history, std::string_view rest);
};

const History::Rule History::rules[] = {
    {"Gsm signal: ",
     [](History& history, std::string_view rest) {
         if (const auto strength = ReadSignal(static_cast<uint>(Number(rest))); strength.dBm)
             history.signal.push_back({history.now, *strength.dBm});
     }},

    // The service
    {"Starting Phone Manager...",
     [](History& history, std::string_view) {
         if (history.Current(Service) != None)
             history.Add(Warning, QStringLiteral("the service was restarted without a clean shutdown"));
         for (int lane = 0; lane < LaneCount; ++lane)
             history.Leave(static_cast<Lane>(lane));
         history.isForcedOff = history.isStopping = false;
         history.Enter(Service, ServiceRuns);
     }},
    {"Gracefully stop", [](History& history, std::string_view) { history.isStopping = true; }},
    {"Succesfully terminated",
     [](History& history, std::string_view) {
         for (int lane = 0; lane < LaneCount; ++lane)
             history.Leave(static_cast<Lane>(lane));
     }},

    // The GSM daemon
    {"UNEXPECTED: Gsm service not ready", [](History& history, std::string_view) { history.Enter(GsmDaemon, GsmDaemonAbsent); }},
    {"Gsmd attached", [](History& history, std::string_view) { history.Enter(GsmDaemon, GsmDaemonPresent); }},
    {"Gsmd unregistered from DBus",
     [](History& history, std::string_view) {
         history.Enter(GsmDaemon, GsmDaemonAbsent);
         history.Leave(Modem);
         history.Leave(SimCard);
         history.Add(Warning, QStringLiteral("the GSM daemon left the bus"));
     }},
    {"Destroying gsm proxy", [](History&, std::string_view) {}},
    {"Gsmd detached", [](History&, std::string_view) {}},
    {"Gsmd service becomes FAILED", [](History&, std::string_view) {}},

    // Modem and SIM card
    {"Gsm service becomes READY",
     [](History& history, std::string_view) {
         history.Leave(SimCard);
         history.Enter(Modem, history.isForcedOff ? ModemForcedOff : ModemOff);
     }},
    {"Gsmd->ModemSetEnabled(1) requested", [](History& history, std::string_view) { history.Enter(Modem, ModemStarting); }},
    {"Gsm modem POWERED",
     [](History& history, std::string_view) {
         history.Enter(Modem, ModemSearching);
         if (history.Current(SimCard) != SimPresent)
             history.Enter(SimCard, SimChecking);
     }},
    {"Now Sim is 1", [](History& history, std::string_view) { history.Enter(SimCard, SimPresent); }},
    {"Now Sim is 0", [](History& history, std::string_view) { history.Enter(SimCard, SimAbsent); }},
    {"Sim check failed", [](History& history, std::string_view) { history.Enter(SimCard, SimAbsent, QStringLiteral("check failed")); }},
    {"PHONE_STATUS_REGISTERED", [](History& history, std::string_view) { history.Enter(Modem, ModemRegistered); }},
    {"Gsm modem OFF",
     [](History& history, std::string_view) {
         history.wentOff = true;
         history.Enter(Modem, history.isForcedOff ? ModemForcedOff : ModemOff);
     }},
    {"New ForcePhoneOff state ",
     [](History& history, std::string_view rest) {
         history.isForcedOff = Begins(rest, "1");
         const State current = history.Current(Modem);
         if (current == ModemOff || current == ModemForcedOff)
             history.Enter(Modem, history.isForcedOff ? ModemForcedOff : ModemOff);
     }},
    {"Rebooting the modem..", [](History& history, std::string_view) { history.Add(PowerCycle, QStringLiteral("no SIM card")); }},
    {"Timeout receiving REGISTERED status",
     [](History& history, std::string_view) { history.Add(PowerCycle, QStringLiteral("not registered within 180 s")); }},
    {"Signal Quality not received",
     [](History& history, std::string_view) { history.Add(PowerCycle, QStringLiteral("no signal report for 10 minutes")); }},
    {"PPP Is not up",
     [](History& history, std::string_view) { history.Add(PowerCycle, QStringLiteral("the data link ppp0 is not up")); }},
    {"RESET to OFF",
     [](History& history, std::string_view) {
         if (history.wentOff)
             history.Add(PowerCycle, QStringLiteral("the modem went off by itself"));
     }},

    // Calls and their sound
    {"Gsmd->Call(",
     [](History& history, std::string_view rest) {
         history.number = Text(rest.substr(0, rest.rfind(')')));
         if (rest.find("failed") != std::string_view::npos)
             history.Add(Warning, QStringLiteral("the GSM daemon did not dial %1").arg(history.number));
     }},
    {"Call succesfully started",
     [](History& history, std::string_view) { history.Enter(Call, CallDialling, history.number); }},
    {"Gsm phone call ANSWERED",
     [](History& history, std::string_view) { history.Enter(Call, CallTalking, history.number); }},
    {"Gsm phone call INCOMING",
     [](History& history, std::string_view) {
         history.number.clear();
         history.Enter(Call, CallRinging);
     }},
    {"LineIdentification: ",
     [](History& history, std::string_view rest) {
         history.number = Text(rest);
         if (history.Current(Call) == CallRinging)
             history.spans[Call].back().note = history.number;
     }},
    {"Call from unauthorized user",
     [](History& history, std::string_view) { history.Enter(Call, CallRefused, history.number); }},
    {"GSM STREAM SUCCESFULLY STARTED",
     [](History& history, std::string_view) {
         if (history.Current(Call) == CallRinging)
             history.Enter(Call, CallTalking, history.number);
     }},
    {"Gsm phone call TERMINATED", [](History& history, std::string_view) { history.EndCall(); }},
    {"[OutputType] Successfully set OutputType=2", [](History& history, std::string_view) { history.Enter(Audio, AudioOnCall); }},
    {"[OutputType] Successfully restored", [](History& history, std::string_view) { history.Leave(Audio); }},

    // Messages
    {"Sms RECEIVED", [](History& history, std::string_view) { history.Add(MessageReceived, QStringLiteral("received")); }},
    {"Sms id=",
     [](History& history, std::string_view rest) {
         const QString id = QString::number(Number(rest));
         if (rest.find("QUEUED") != std::string_view::npos)
             history.Add(MessageQueued, QStringLiteral("message %1 queued").arg(id));
         else if (rest.find("SENT") != std::string_view::npos)
             history.Add(MessageSent, QStringLiteral("message %1 sent").arg(id));
         else
             history.Add(MessageLost, QStringLiteral("message %1 lost").arg(id));
     }},

    // Level 2, but no trouble
    {"EvaluatePhonePower()", [](History& history, std::string_view) { history.wentOff = false; }},
    {"Gsm phone call MAKE", [](History&, std::string_view) {}},
    {"Gsm phone outgoing call TIMEOUT", [](History&, std::string_view) {}},
    {"Waiting reply in", [](History&, std::string_view) {}},
    {"Succesfully started Voice Call Loop", [](History&, std::string_view) {}},
    {"Hanging up incoming call to start", [](History&, std::string_view) {}},
    {"Modem POWERED but not checking sim", [](History&, std::string_view) {}},
    {"OnSimCheckContinue() but not checking", [](History&, std::string_view) {}},
    {"But SIM still not validated", [](History&, std::string_view) {}},
    {"SetApn(", [](History&, std::string_view) {}},
    {"Dbus ",
     // The trace of a remote call has in parentheses the error that the following line lacks.
     [](History& history, std::string_view rest) {
         const size_t error = rest.find("error=true ");
         history.remoteError = error == std::string_view::npos ? QString() : InParentheses(rest.substr(error));
     }},
};

History::History(LogReader& reader)
{
    LogEntry entry;
    bool isFirst = true;
    while (reader.Next(entry)) {
        if (isFirst) {
            now = from = entry.time;
            isFirst = false;
        }
        SetClock(entry.time);
        Follow(entry);
    }
    to = now;
    for (int lane = 0; lane < LaneCount; ++lane)
        Leave(static_cast<Lane>(lane));

    // Make all times those of the clock as it was set last.
    const double shift = clockShift;
    from -= shift;
    to -= shift;
    for (std::vector<Span>& lane : spans) {
        for (Span& span : lane) {
            span.from -= shift;
            span.to -= shift;
        }
    }
    for (Mark& mark : marks)
        mark.time -= shift;
    for (Reading& reading : signal)
        reading.time -= shift;
}

void History::SetClock(double time)
{
    const double step = time + clockShift - now;
    if (step < -LargestStepBack || step > LargestStepAhead) {
        clockShift -= step;
        Add(Warning, QStringLiteral("the clock was set %1 by %2 s")
                         .arg(QLatin1String(step < 0 ? "back" : "ahead"))
                         .arg(std::abs(step), 0, 'f', 0));
    }
    now = std::max(now, time + clockShift);
}

void History::Follow(const LogEntry& entry)
{
    // The log may begin while the service is running.
    if (Current(Service) == None && !isStopping && !Begins(entry.message, "Starting Phone Manager"))
        Enter(Service, ServiceRuns);
    const auto rule = std::find_if(std::begin(rules), std::end(rules),
                                   [&](const Rule& rule) { return Begins(entry.message, rule.text); });
    if (rule != std::end(rules))
        rule->apply(*this, entry.message.substr(rule->text.size()));
    else if (entry.level <= LogLevelWarning && !isStopping)
        AddTrouble(entry);
}

void History::AddTrouble(const LogEntry& entry)
{
    QString text = Text(entry.message);
    // People pass pictures on: leave out the access point's password.
    if (Begins(entry.message, "Gsmd->GprsSetApn("))
        text = QStringLiteral("Gsmd->GprsSetApn() request failed");
    if (!remoteError.isEmpty())
        text += QStringLiteral(" (%1)").arg(remoteError);
    remoteError.clear();
    Add(entry.level == LogLevelError ? Error : Warning, text);
}

void History::Enter(Lane lane, State state, const QString& note)
{
    if (isOpen[lane]) {
        if (Current(lane) == state && spans[lane].back().note == note)
            return;
        spans[lane].back().to = now;
    }
    isOpen[lane] = state != None;
    if (state != None)
        spans[lane].push_back({now, now, state, note});
}

void History::EndCall()
{
    if (Current(Call) == CallDialling)
        spans[Call].back().state = CallUnanswered;
    Leave(Call);
}

int History::Count(Kind kind) const
{
    return static_cast<int>(
        std::count_if(marks.begin(), marks.end(), [=](const Mark& mark) { return mark.kind == kind; }));
}

int History::Count(Lane lane, State state) const
{
    return static_cast<int>(
        std::count_if(spans[lane].begin(), spans[lane].end(), [=](const Span& span) { return span.state == state; }));
}

double History::Duration(Lane lane, State state) const
{
    double seconds = 0;
    for (const Span& span : spans[lane])
        seconds += span.state == state ? span.to - span.from : 0;
    return seconds;
}
