#include "Waiting.h"

#include <utility>

namespace
{

/// The contract gives an answer 2 s; the rest is for a busy machine.
constexpr int LimitMs = 1500;
/// More than this come only from a client gone wild.
constexpr int MostAnswers = 64;

}

Waiting::Waiting()
{
    limit.setSingleShot(true);
    limit.setInterval(LimitMs);
    connect(&limit, &QTimer::timeout, this, [this] {
        Q_EMIT TimedOut();
        Release();
    });
}

void Waiting::Add(const std::function<void()>& answer)
{
    if (answers.size() >= MostAnswers) {
        answer();
        return;
    }
    answers.append(answer);
    // The first answer's limit holds for all.
    if (!limit.isActive())
        limit.start();
}

void Waiting::Release()
{
    limit.stop();
    for (const std::function<void()>& answer : std::exchange(answers, {}))
        answer();
}
