#pragma once

#include <functional>
#include <optional>

#include "base/ResourcePool.h"
#include "db/Connection.h"
#include "db/StatementCache.h"

namespace tessaly::tessalyd {

/// The connections by which queries and retrievals read the tables: apart from the one that stores write by,
/// so that neither waits for the other, and bounded in number. They are opened as they are needed and kept
/// with their prepared statements. Thread-safe.
class QuerySessions {
  public:
    /// Each keeps some megabytes of the database. One is held while a page is read; no peer is waited for
    /// meanwhile.
    static constexpr std::size_t Most = 8;

    struct Session {
        db::Connection connection;
        db::StatementCache statements{connection};
    };

    /// One session's use by one thread. When an exception ends it, the session is closed instead of kept: it
    /// may be what is broken. What was made of its statements is to be gone before it.
    class Lease {
      public:
        Lease(QuerySessions& owner, base::ResourcePool<Session>::Lease session);
        ~Lease();
        Lease(Lease&&) noexcept = default;
        Lease& operator=(Lease&&) = delete;

        [[nodiscard]] db::StatementCache& statements() const noexcept { return session_->statements; }
        [[nodiscard]] const db::Connection& connection() const noexcept { return session_->connection; }

      private:
        QuerySessions* owner_;
        base::ResourcePool<Session>::Lease session_;
        int exceptions_;
    };

    /// Waits while all are in use, and asks `giveUp` several times a second meanwhile: nothing once it says
    /// true. What giveUp throws comes through. Throws db::Error when none can be opened.
    [[nodiscard]] std::optional<Lease> take(const std::function<bool()>& giveUp);

    /// Closes those that nobody uses; the others are closed when they come back. The next use opens new ones.
    void close() { pool_.close(); }

  private:
    base::ResourcePool<Session> pool_{Most};
};

}  // namespace tessaly::tessalyd
