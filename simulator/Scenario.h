#pragma once

#include "Commands.h"
#include "InterfaceDescription.h"

#include <QDBusMessage>
#include <QElapsedTimer>
#include <QTimer>

/// Plays a file of commands, one per line, and checks the events that follow. In addition to the commands of the device
/// there are
///   say TEXT                      prints a line of the timeline
///   wait MS                       pauses
///   expect [within MS] TEXT       waits for an event that contains the text; events since the last match count
///   never TEXT                    fails as soon as an event contains the text
///   phone METHOD [ARGUMENT...]    calls the phone service; its answer is the event "phone METHOD -> STATUS ..."
/// Events are those of the device, the phone service's signals, such as "phone PhoneStatus(1)", and "phone started" and
/// "phone stopped" when the service enters or leaves the bus.
class Scenario : public QObject
{
    Q_OBJECT

public:
    Scenario(Device& device, Commands& commands);

    /// Parses the whole file without executing anything. @return an error message, empty on success.
    QString Load(const QString& path);
    void Start();

Q_SIGNALS:
    /// @param problem empty if every line was executed and every expectation was met.
    void Ended(const QString& problem);

private Q_SLOTS:
    void OnPhoneSignal(const QDBusMessage& message);

private:
    struct Line {
        int number;
        std::function<Commands::Result()> run;
    };

    Commands::Prepared Prepare(const QString& text);
    Commands::Prepared PrepareExpect(const QString& text);
    Commands::Prepared PreparePhone(const QStringList& words);
    void Step();
    void Expect(const QString& text, int ms);
    void CallPhone(const QDBusMessage& request);
    void OnEvent(const QString& text);
    void Fail(const QString& problem);
    QString WithTime(const QString& text) const;

    Commands& commands;
    const InterfaceDescription phoneInterface;
    QString name;
    QList<Line> lines;
    int next = 0;                ///< index of the line to be executed next
    QStringList unmatchedEvents; ///< events since the last one that was expected
    QStringList recentEvents;    ///< for the report of a failure
    QStringList forbidden;       ///< texts that no event may contain
    QString expected;            ///< the text that is waited for, if any
    QTimer timer;                ///< ends a pause or limits an expectation
    QElapsedTimer clock;
    bool ended = false;
};
