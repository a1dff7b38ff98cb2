#include "tessalyd/search/QuerySessions.h"

#include <chrono>
#include <exception>
#include <utility>

#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

struct QuerySessions::Session {
    db::Connection connection;
    db::StatementCache statements{connection};
};

QuerySessions::QuerySessions() = default;
QuerySessions::~QuerySessions() = default;

std::optional<QuerySessions::Lease> QuerySessions::take(const std::function<bool()>& giveUp) {
    constexpr std::chrono::milliseconds AskInterval{100};
    std::unique_lock lock{mutex_};
    while (!returned_.wait_for(lock, AskInterval, [this] { return inUse_ < Most; })) {
        lock.unlock();
        if (giveUp())
            return std::nullopt;
        lock.lock();
    }
    ++inUse_;
    std::unique_ptr<Session> session;
    if (!idle_.empty()) {
        session = std::move(idle_.back());
        idle_.pop_back();
    }
    const unsigned generation = generation_;
    lock.unlock();
    try {
        if (!session) {
            session = std::make_unique<Session>();
            openDatabase(session->connection, db::Purpose::Queries);
        }
        return std::optional<Lease>{std::in_place, *this, std::move(session), generation};
    } catch (...) {
        giveBack(nullptr, generation);
        throw;
    }
}

void QuerySessions::close() {
    std::vector<std::unique_ptr<Session>> closed;  // outside the lock
    const std::lock_guard lock{mutex_};
    ++generation_;
    closed.swap(idle_);
}

void QuerySessions::giveBack(std::unique_ptr<Session> session, unsigned generation) noexcept {
    {
        const std::lock_guard lock{mutex_};
        --inUse_;
        if (session && generation == generation_)
            idle_.push_back(std::move(session));
    }
    returned_.notify_one();
}

QuerySessions::Lease::Lease(QuerySessions& owner, std::unique_ptr<Session> session, unsigned generation)
    : owner_(&owner),
      session_(std::move(session)),
      generation_(generation),
      exceptions_(std::uncaught_exceptions()) {}

QuerySessions::Lease::Lease(Lease&& other) noexcept
    : owner_(std::exchange(other.owner_, nullptr)),
      session_(std::move(other.session_)),
      generation_(other.generation_),
      exceptions_(other.exceptions_) {}

QuerySessions::Lease::~Lease() {
    if (owner_ == nullptr)
        return;
    if (std::uncaught_exceptions() > exceptions_) {
        if (session_->connection.hasLostSession())
            owner_->close();  // after a restart of the engine, the others would each cost a query as well
        session_.reset();
    }
    owner_->giveBack(std::move(session_), generation_);
}

db::StatementCache& QuerySessions::Lease::statements() const noexcept {
    return session_->statements;
}

}  // namespace tessaly::tessalyd
