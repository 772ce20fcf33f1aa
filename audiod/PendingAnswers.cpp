#include "PendingAnswers.h"

#include <utility>

namespace
{

/// The contract allows 2 s for an answer. The rest is a margin for a busy machine.
constexpr int LimitMs = 1500;
/// Only a runaway client has more.
constexpr int MostAnswers = 64;

}

PendingAnswers::PendingAnswers()
{
    limit.setSingleShot(true);
    limit.setInterval(LimitMs);
    connect(&limit, &QTimer::timeout, this, [this] {
        Q_EMIT TimedOut();
        Release();
    });
}

void PendingAnswers::Add(const std::function<void()>& answer)
{
    if (answers.size() >= MostAnswers) {
        answer();
        return;
    }
    answers.append(answer);
    // The limit of the first answer applies to all.
    if (!limit.isActive())
        limit.start();
}

void PendingAnswers::Release()
{
    limit.stop();
    for (const std::function<void()>& answer : std::exchange(answers, {}))
        answer();
}
