#pragma once

#include <memory>
#include <mutex>

#include "tessalyd/services/query/QueryRules.h"
#include "tessalyd/services/query/QuerySessions.h"
#include "tessalyd/services/retrieve/OutboundSlots.h"

namespace tessaly::tessalyd {

/// What the services of queries and retrievals share. Thread-safe.
class QueryAccess {
  public:
    /// Holds for the associations that are accepted from now on. Sessions are opened anew.
    void configure(const Configuration& configuration) {
        auto rules = std::make_shared<const QueryRules>(configuration);
        {
            const std::lock_guard lock{mutex_};
            rules_ = std::move(rules);
        }
        sessions_.close();
    }
    /// Closes the sessions that no query uses; the others when they come back.
    void close() { sessions_.close(); }

    /// Those of the last configuration; there is to be one.
    [[nodiscard]] std::shared_ptr<const QueryRules> rules() const {
        const std::lock_guard lock{mutex_};
        return rules_;
    }
    [[nodiscard]] QuerySessions& sessions() noexcept { return sessions_; }
    /// Of the associations that moves open.
    [[nodiscard]] OutboundSlots& outboundSlots() noexcept { return outboundSlots_; }

  private:
    mutable std::mutex mutex_;
    std::shared_ptr<const QueryRules> rules_;
    QuerySessions sessions_;
    OutboundSlots outboundSlots_;
};

}  // namespace tessaly::tessalyd
