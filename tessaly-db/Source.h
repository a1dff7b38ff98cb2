#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "db/Connection.h"
#include "tessaly-db/WalkedTransaction.h"

namespace tessaly::tool {

/// A database that is only read: nothing in it changes, and no file beside it stays behind. It is seen as it
/// was at one moment, where its engine can do that; who writes into it meanwhile is not in the way. Throws
/// std::runtime_error or what derives from it.
class Source {
  public:
    explicit Source(const std::string& dsn);

    /// Whether its engine is one that tables can be made on.
    [[nodiscard]] bool isKnown() const noexcept { return known_; }

    /// For the tables' rows: no set on it grows in memory.
    [[nodiscard]] const db::Connection& connection() const noexcept { return connection_; }

    /// Nothing where there is no such table.
    [[nodiscard]] std::optional<std::vector<std::string>> columns(const std::string& table) const;

    /// Nothing for an engine that cannot be expected to count.
    [[nodiscard]] std::optional<long long> count(const std::string& table) const;

    /// Throws when what was read may be a mixture of two moments.
    void requireUnchanged() const;

  private:
    // Where nobody can be kept from writing, and all that can be done is to look.
    std::filesystem::path file_;
    std::filesystem::path absent_;
    struct stat before_ {};
    db::Connection connection_;
    std::optional<WalkedTransaction> moment_;
    bool known_ = false;  // its engine is one of ours
};

}  // namespace tessaly::tool
