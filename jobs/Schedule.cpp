#include "jobs/Schedule.h"

#include <algorithm>
#include <array>

namespace tessaly::jobs {

std::chrono::seconds retryDelay(int attempts, std::chrono::seconds firstRetry) {
    constexpr std::array Multiples{1, 2, 5, 10, 30, 60};
    const auto at = static_cast<std::size_t>(std::max(attempts, 1) - 1);
    return firstRetry * Multiples[std::min(at, Multiples.size() - 1)];
}

Ending endingOf(const Job& job, const Outcome& outcome, Time now, const RunnerOptions& options) {
    switch (outcome.kind) {
        case Outcome::Kind::Done:
            return {.state = State::Done, .attempts = job.attempts, .claimedAt = job.nextAttempt};
        case Outcome::Kind::GiveUp:
            return {.state = State::GivenUp, .attempts = job.attempts + 1, .error = outcome.reason};
        case Outcome::Kind::Uncertain:
            return {.state = State::Uncertain, .attempts = job.attempts + 1, .error = outcome.reason};
        case Outcome::Kind::Postpone:
            return {.state = State::Waiting, .delay = outcome.delay, .beginsAnew = true};
        case Outcome::Kind::Stopped:
            return {.state = State::Waiting, .attempts = job.attempts, .error = job.lastError};
        case Outcome::Kind::Retry:
            break;
    }
    const std::chrono::seconds left = job.begun + options.giveUp - now;
    if (left <= std::chrono::seconds::zero())
        return {.state = State::GivenUp, .attempts = job.attempts + 1, .error = outcome.reason};
    // The last attempt is at the very end of the time.
    return {.state = State::Waiting,
            .delay = std::min(retryDelay(job.attempts + 1, options.firstRetry), left),
            .attempts = job.attempts + 1,
            .error = outcome.reason};
}

}  // namespace tessaly::jobs
