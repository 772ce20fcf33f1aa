#pragma once

#include <QList>
#include <QObject>
#include <QTimer>

#include <functional>

/// Answers that wait for something below the daemon, a short time at most: shorter than any caller's patience.
class Waiting : public QObject
{
    Q_OBJECT

public:
    Waiting();

    /// Keeps what sends an answer. It is called once: at Release(), when time is up, or at once when too many wait.
    void Add(const std::function<void()>& answer);
    void Release();
    bool IsEmpty() const { return answers.isEmpty(); }

Q_SIGNALS:
    /// Time is up. The answers go out afterwards.
    void TimedOut();

private:
    QList<std::function<void()>> answers;
    QTimer limit;
};
