#include "tessalyd/search/SearchClock.h"

namespace tessaly::tessalyd {

namespace {

/// A clock that is read for every row would cost as much as some rows do.
constexpr unsigned RowsBetweenLooks = 8;
constexpr std::chrono::milliseconds AskInterval{5};

}  // namespace

void SearchClock::start() {
    since_ = Clock::now();
    lastAsked_ = since_;
}

bool SearchClock::watch() {
    return rowsSeen_++ % RowsBetweenLooks == 0 ? look() : stopped_;
}

bool SearchClock::look() {
    const auto now = Clock::now();
    if (isOver(now))
        throw SearchTimeout{};
    if (limits_.stop && now - lastAsked_ > AskInterval) {
        lastAsked_ = now;
        stopped_ = isUnwanted();
    }
    return stopped_;
}

bool SearchClock::endsStatement() {
    isLate_ = isOver();
    return isLate_ || (limits_.stop && isUnwanted());
}

bool SearchClock::mayHaveTimedOut() const {
    const auto now = Clock::now();
    return isOver(now) ||
           (limits_.timeout > std::chrono::seconds::zero() && now - statementSince_ >= limits_.timeout);
}

bool SearchClock::isOver(Clock::time_point now) const {
    return limits_.timeout > std::chrono::seconds::zero() && worked_ + (now - since_) >= limits_.timeout;
}

/// A requestor that takes its answers slowly does not use up the time that the search has.
bool SearchClock::isUnwanted() {
    const auto asked = Clock::now();
    const bool unwanted = limits_.stop();
    const auto took = Clock::now() - asked;
    since_ += took;
    asking_ += took;
    return unwanted;
}

}  // namespace tessaly::tessalyd
