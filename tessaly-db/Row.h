#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "db/Query.h"
#include "schema/Definitions.h"

namespace tessaly::tool {

/// A row's values in the order of the columns that are copied; nothing for NULL.
using Row = std::vector<std::optional<std::string>>;
using Columns = std::vector<const schema::Column*>;

/// Where the columns stand in a set, which has them all; for readRow().
[[nodiscard]] std::vector<std::size_t> placesOf(const Columns& columns, const db::ResultSet& rows);
/// The current row of a set.
void readRow(db::ResultSet& rows, const std::vector<std::size_t>& places, Row& row);

/// What keeps the value from being put into the column of that engine's table, in words; empty where nothing
/// does. A number becomes a plain one.
[[nodiscard]] std::string unfit(std::optional<std::string>& value, const schema::Column& column,
                                const schema::Engine& target);

/// The row by its key, for a sentence about it: "Image 1.2.3".
[[nodiscard]] std::string nameOf(const schema::Table& table, const Columns& columns, const Row& row);

/// Whether two tables have the same rows, in whatever order: the number of rows and the sum of a hash of
/// each.
class Digest {
  public:
    void add(const Row& row);

    [[nodiscard]] long long rows() const noexcept { return rows_; }
    [[nodiscard]] std::string text() const;  ///< 16 digits
    bool operator==(const Digest&) const = default;

  private:
    long long rows_ = 0;
    std::uint64_t sum_ = 0;
    std::string bytes_;  // of one row; reused
};

}  // namespace tessaly::tool
