#pragma once

#include <optional>

#include "db/Connection.h"
#include "db/Transaction.h"

namespace tessaly::tool {

/// A transaction in which long sets are walked. Where the driver reads a set whole into memory while
/// ODBC's own kind of transaction is open, the engine is told by statements instead. Rolled back by the
/// destructor unless it was committed; the connection must outlive it.
class WalkedTransaction {
  public:
    explicit WalkedTransaction(const db::Connection& connection);
    ~WalkedTransaction();
    WalkedTransaction(const WalkedTransaction&) = delete;
    WalkedTransaction& operator=(const WalkedTransaction&) = delete;

    /// Throws db::Error when the engine refuses; the destructor then rolls back.
    void commit();

  private:
    const db::Connection& connection_;
    std::optional<db::Transaction> own_;  // ODBC's
    bool open_ = false;                   // without it
};

}  // namespace tessaly::tool
