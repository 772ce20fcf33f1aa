#pragma once

#include "Commands.h"

#include <QDBusMessage>
#include <QElapsedTimer>
#include <QTimer>

/// Plays a file of commands, one a line, and checks what happens meanwhile. Beside the commands of the device it knows
///   say TEXT                      prints a line of the timeline
///   wait MS                       goes on later
///   expect [within MS] TEXT       goes on when an event with the text comes, or has come since the last one expected
///   phone METHOD [ARGUMENT...]    calls the phone service; its answer is the event "phone METHOD -> STATUS ..."
/// Events are those of the device, and the phone service's signals, as "phone PhoneStatus(1)".
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
        QString text;
    };

    void Step();
    QString Carry(const QString& text);
    QString Expect(const QStringList& words);
    QString CallPhone(const QStringList& words);
    void OnEvent(const QString& text);
    void Fail(const QString& problem);

    Commands& commands;
    const Interface phone;
    QString name;
    QList<Line> lines;
    int next = 0;       ///< index of the line to be carried out next
    QStringList events; ///< not yet passed by an expectation
    QStringList passed; ///< all since the start, for the report of a failure
    QString expected;   ///< what is waited for, if not empty
    QTimer limit;       ///< of the wait or the expectation
    QElapsedTimer clock;
};
