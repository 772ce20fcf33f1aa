#include "PendingAnswers.h"

#include "TimeLimits.h"

#include <utility>

namespace
{

/// Leaves a margin for a busy machine.
constexpr int LimitMs = TimeLimits::SoundManagerMaskMs - 1000;
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
