#pragma once

#include <optional>
#include <string>

#include "db/Connection.h"
#include "schema/Definitions.h"
#include "tessaly-db/NewFile.h"
#include "tessaly-db/WalkedTransaction.h"

namespace tessaly::tool {

/// A new database in the making, in one transaction: it comes about whole with keep(), or not at all. Where
/// the engine keeps databases in files, the file is made; a server's database is there already, and has none
/// of the tables. Throws std::runtime_error or what derives from it.
class Target {
  public:
    explicit Target(const std::string& dsn);

    /// Throws when the data source's database is somebody's already. Changes nothing.
    static void requireFree(const std::string& dsn);

    /// A set that is walked on it does not grow in memory.
    [[nodiscard]] const db::Connection& connection() const noexcept { return connection_; }
    [[nodiscard]] const schema::Definitions& definitions() const noexcept { return definitions_; }

    [[nodiscard]] const schema::Engine& engine() const;

    /// With the row of the version, and the indexes that refuse a row. Into tables without the others, rows
    /// come quicker.
    void makeTables() const;
    void makeIndexes() const;

    /// After it the database is there, flushed; the connection is closed.
    void keep();

  private:
    void makeIndexes(bool unique) const;

    std::optional<NewFile> file_;
    db::Connection connection_;
    schema::Definitions definitions_;
    std::optional<WalkedTransaction> transaction_;
};

}  // namespace tessaly::tool
