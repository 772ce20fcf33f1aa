#pragma once

#include "Commands.h"

#include <QDBusMessage>
#include <QElapsedTimer>
#include <QTimer>

/// Plays a file of commands, one a line, and checks what happens meanwhile. Beside the commands of the device it knows
///   say TEXT                      prints a line of the timeline
///   wait MS                       goes on later
///   expect [within MS] TEXT       goes on when an event with the text comes, or has come since the one last expected
///   never TEXT                    fails as soon as an event with the text comes
///   phone METHOD [ARGUMENT...]    asks the phone service; its answer is the event "phone METHOD -> STATUS ..."
/// Events are those of the device, the phone service's signals, as "phone PhoneStatus(1)", and "phone started" and
/// "phone stopped" when the service enters or leaves the bus.
class Scenario : public QObject
{
    Q_OBJECT

public:
    Scenario(Device& device, Commands& commands);

    /// Reads the file. @return an empty text, or what is wrong with it.
    QString Load(const QString& path);
    void Start();

Q_SIGNALS:
    /// @param problem empty when every line was carried out and every expectation came true.
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
    void AskPhone(const QDBusMessage& request);
    void OnEvent(const QString& text);
    void Fail(const QString& problem);
    QString Stamped(const QString& text) const;

    Commands& commands;
    const InterfaceDescription phone;
    QString name;
    QList<Line> lines;
    int next = 0;          ///< index of the line to be carried out next
    QStringList events;    ///< not yet passed by an expectation
    QStringList latest;    ///< of all events, for the report of a failure
    QStringList forbidden; ///< what must not come
    QString expected;      ///< what is waited for, if not empty
    QTimer limit;          ///< of the wait or the expectation
    QElapsedTimer clock;
    bool over = false;
};
