#pragma once

#include <optional>

#include "db/Query.h"

namespace tessaly::maintenance {

/// The rows of one statement, read from the first to the last on a connection of their own: meanwhile the
/// console's connection is free for whatever the user does. May be let go of at any moment, as long as nobody
/// is inside rows(); then the statement can only be begun anew.
class RowWalk {
  public:
    /// Connects to the database of `console`. Throws db::Error.
    explicit RowWalk(const db::Connection& console) {
        connection_.setSameAs(console);
        connection_.establish();
    }

    void begin(const std::string& statement) {
        letGo();
        rows_.emplace(query_.emplace(connection_, statement).open());
    }
    [[nodiscard]] bool isUnderWay() const noexcept { return rows_.has_value(); }
    [[nodiscard]] db::ResultSet& rows() noexcept { return *rows_; }
    void letGo() noexcept {
        rows_.reset();
        query_.reset();
    }

  private:
    db::Connection connection_;
    std::optional<db::Query> query_;
    std::optional<db::ResultSet> rows_;
};

}  // namespace tessaly::maintenance
