#pragma once

#include <memory>
#include <string>

#include "db/Query.h"

namespace tessaly::db {

/// A long walk over one statement's rows, in memory that does not grow with them on any engine. Where a
/// driver has to be told so, the walk is on a connection of its own: then a failure of another statement
/// cannot end it, and it sees nothing of a transaction that is open on the connection given. What is changed
/// or deleted while it lasts may or may not be seen. The connection given must outlive it.
class StreamedQuery {
  public:
    enum class On {
        Either,        ///< the connection given where that will do
        ItsConnection  ///< of its own: the caller writes on the connection given between two rows
    };
    StreamedQuery(const Connection& connection, std::string text, On on = On::Either);

    /// Moves to the next row; false at the end of the data. Throws when the walk has ended before its data.
    [[nodiscard]] bool next() { return rows_.next(); }
    /// The row that the walk stands on.
    [[nodiscard]] ResultSet& row() noexcept { return rows_; }

  private:
    std::unique_ptr<Connection> own_;  // null where the walk is on the connection given
    Query query_;
    ResultSet rows_;
};

}  // namespace tessaly::db
