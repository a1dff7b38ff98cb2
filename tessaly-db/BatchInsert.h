#pragma once

#include <functional>
#include <optional>
#include <string>

#include "tessaly-db/Row.h"

namespace tessaly::tool {

/// Puts rows into a table, many with one statement.
class BatchInsert {
  public:
    /// Hears of a row that the engine refused, and why.
    using Refused = std::function<void(const Row&, const std::string& why)>;

    /// With `refused`, a row that stands there already by its key is left out and told; otherwise it throws
    /// db::Error like every other failure.
    BatchInsert(const db::Connection& connection, const schema::Table& table, Columns columns,
                Refused refused = {});

    void add(const Row& row);
    /// What add() still holds back.
    void finish();

  private:
    /// Gives how many of them are there now.
    long long run(std::vector<db::Param> params, std::size_t count);
    void runOrTell();
    [[nodiscard]] std::string statement(std::size_t count) const;

    const db::Connection& connection_;
    const schema::Table& table_;
    Columns columns_;
    Refused refused_;
    std::size_t count_ = 0;           // of the rows held back
    std::vector<db::Param> params_;   // theirs
    std::vector<Row> rows_;           // they themselves, where they may have to be told of
    std::optional<db::Query> whole_;  // of a full batch
    std::optional<db::Query> one_;
};

}  // namespace tessaly::tool
