#pragma once

#include "LogReader.h"

#include <QString>

#include <array>
#include <vector>

/// The states and events of the phone, reconstructed from the service's log.
class History
{
public:
    /// Each lane has one state at a time.
    enum Lane { Service, GsmDaemon, Modem, SimCard, Call, Audio, LaneCount };

    /// The states of all lanes, grouped by lane. Where several are too short to be drawn apart, the last one in this
    /// order is drawn.
    enum State {
        None = -1,
        ServiceRuns,
        GsmDaemonPresent,
        GsmDaemonAbsent,
        ModemOff,
        ModemForcedOff,
        ModemRegistered,
        ModemStarting,
        ModemSearching,
        SimPresent,
        SimChecking,
        SimAbsent,
        CallDialling,
        CallRinging,
        CallTalking,
        CallRefused,
        CallUnanswered,
        AudioOnCall,
        StateCount,
    };

    struct Span {
        double from;
        double to;
        State state;
        QString note; ///< such as the number of a call
    };

    /// Events.
    enum Kind { MessageReceived, MessageQueued, MessageSent, MessageLost, PowerCycle, Warning, Error };

    struct Mark {
        double time;
        Kind kind;
        QString text;
    };

    struct Reading {
        double time;
        int dBm;
    };

    /// Reads a log to its end.
    explicit History(LogReader& reader);

    double From() const { return from; }
    double To() const { return to; }
    const std::vector<Span>& Spans(Lane lane) const { return spans[lane]; }
    const std::vector<Mark>& Marks() const { return marks; }
    const std::vector<Reading>& Signal() const { return signal; }

    int Count(Kind kind) const;
    int Count(Lane lane, State state) const;
    /// The total time, in seconds, for which a lane was in a state.
    double Duration(Lane lane, State state) const;

private:
    struct Rule;

    void Follow(const LogEntry& entry);
    void SetClock(double time);
    void Enter(Lane lane, State state, const QString& note = {});
    void Leave(Lane lane) { Enter(lane, None); }
    /// Ends the call; one that was still being dialled was not answered.
    void EndCall();
    void Add(Kind kind, const QString& text) { marks.push_back({now, kind, text}); }
    void AddTrouble(const LogEntry& entry);
    State Current(Lane lane) const { return spans[lane].empty() || !isOpen[lane] ? None : spans[lane].back().state; }

    static const Rule rules[];

    std::array<std::vector<Span>, LaneCount> spans;
    std::array<bool, LaneCount> isOpen = {};
    std::vector<Mark> marks;
    std::vector<Reading> signal;
    double now = 0;
    double from = 0;
    double to = 0;
    double clockShift = 0; ///< added to the log's times, so that setting the clock causes no jump
    bool isForcedOff = false;
    bool wentOff = false; ///< the modem has reported off since the last power decision
    bool isStopping = false;
    QString number; ///< of the call that is being placed
    QString remoteError;
};
