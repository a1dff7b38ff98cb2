#pragma once

#include <optional>
#include <string>

#include "db/StreamedQuery.h"

namespace tessaly::maintenance {

/// The rows of one statement, read from the first to the last on a connection of their own: meanwhile the
/// caller's connection is free for whatever the user does. May be let go of at any moment, as long as nobody
/// is inside rows(); then the statement can only be begun anew.
class RowWalk {
  public:
    /// Of the database of `connection`, which must outlive it.
    explicit RowWalk(const db::Connection& connection) : connection_(connection) {}

    /// Throws db::Error, also where there is no other connection to be had.
    void begin(const std::string& statement) {
        letGo();
        walk_.emplace(connection_, statement, db::StreamedQuery::On::ItsConnection);
    }
    [[nodiscard]] bool isUnderWay() const noexcept { return walk_.has_value(); }
    /// While it is under way.
    [[nodiscard]] db::ResultSet& rows() noexcept { return walk_->row(); }
    void letGo() noexcept { walk_.reset(); }

  private:
    const db::Connection& connection_;
    std::optional<db::StreamedQuery> walk_;
};

}  // namespace tessaly::maintenance
