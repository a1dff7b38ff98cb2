#pragma once

#include <memory>

#include "db/Connection.h"

namespace tessaly::db {

namespace detail {
class Session;
}

/// A transaction on a connection from construction to commit(); rolled back by the destructor otherwise.
/// One at a time: a second one on the same connection throws. Result sets opened inside are to be gone
/// before either end.
class Transaction {
  public:
    explicit Transaction(const Connection& connection);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    /// Throws db::Error when the engine refuses; the destructor then rolls back. OutcomeUnknown where the
    /// session was lost meanwhile. Throws as well when a statement has failed since the beginning, whoever
    /// caught that: some engines have undone the others by then, and not every driver says so when it is told
    /// to commit.
    void commit();
    /// Ends the transaction without its changes, before the destructor would; nothing happens after an end.
    void rollBack() noexcept;

  private:
    std::shared_ptr<detail::Session> session_;
    bool open_ = true;
};

}  // namespace tessaly::db
