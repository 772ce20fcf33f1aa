#pragma once

#include <QList>
#include <QObject>
#include <QTimer>

#include <functional>

/// Answers that are delayed until the sound server or callaudiod has acted, but never beyond the caller's time limit.
class PendingAnswers : public QObject
{
    Q_OBJECT

public:
    PendingAnswers();

    /// Stores a function that sends an answer. It is called once: at Release(), at the time limit, or at once if too
    /// many are stored.
    void Add(const std::function<void()>& answer);
    void Release();
    bool IsEmpty() const { return answers.isEmpty(); }

Q_SIGNALS:
    /// The time limit has expired. The answers are sent afterwards.
    void TimedOut();

private:
    QList<std::function<void()>> answers;
    QTimer limit;
};
