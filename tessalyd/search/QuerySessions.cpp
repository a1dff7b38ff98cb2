#include "tessalyd/search/QuerySessions.h"

#include <chrono>
#include <exception>
#include <memory>
#include <utility>

#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

std::optional<QuerySessions::Lease> QuerySessions::take(const std::function<bool()>& giveUp) {
    constexpr std::chrono::milliseconds AskInterval{100};
    for (;;) {
        auto lease = pool_.take(AskInterval);
        if (!lease && giveUp())
            return std::nullopt;
        if (!lease)
            continue;
        if (lease->isEmpty()) {
            auto opened = std::make_unique<Session>();
            openDatabase(opened->connection, db::Purpose::Queries);
            lease->set(std::move(opened));
        }
        return std::optional<Lease>{std::in_place, *this, std::move(*lease)};
    }
}

QuerySessions::Lease::Lease(QuerySessions& owner, base::ResourcePool<Session>::Lease session)
    : owner_(&owner), session_(std::move(session)), exceptions_(std::uncaught_exceptions()) {}

QuerySessions::Lease::~Lease() {
    if (session_.isEmpty() || std::uncaught_exceptions() <= exceptions_)
        return;
    if (session_->connection.hasLostSession())
        owner_->close();  // after a restart of the engine, the others would each cost a query as well
    session_.discard();
}

}  // namespace tessaly::tessalyd
