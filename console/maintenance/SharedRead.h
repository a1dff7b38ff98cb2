#pragma once

#include <optional>

#include "db/Transaction.h"

namespace tessaly::maintenance {

/// One read of the database that the look-ups of many rows share: to begin and end a read for each costs as
/// much as the look-up. While it is held the connection belongs to the pass: whoever writes, or lets a
/// handler run that may, lets go of it first. Otherwise a handler's own transaction would fail, and so would
/// any write of a connection that has been reading since before the server's last one.
class SharedRead {
  public:
    explicit SharedRead(const db::Connection& connection) : connection_(connection) {}

    /// Begins the read unless it is held; a read that has served many rows begins anew, so that the server's
    /// log is not kept from shrinking.
    void hold() {
        if (++rows_ % Rows == 0)
            letGo();
        if (!read_)
            read_.emplace(connection_);
    }
    void letGo() noexcept { read_.reset(); }

  private:
    static constexpr int Rows = 1000;

    const db::Connection& connection_;
    std::optional<db::Transaction> read_;
    int rows_ = 0;
};

}  // namespace tessaly::maintenance
