#pragma once

#include <atomic>
#include <functional>
#include <stop_token>

#include "base/ResourcePool.h"
#include "db/Connection.h"

namespace tessaly::tessalyd {

/// The connections by which services make jobs and look after them: what they commit survives a power
/// failure. Thread-safe.
class JobSessions {
  public:
    using Work = std::function<void(const db::Connection&)>;

    /// Runs the work in one transaction, again where others were in its way or the session was lost: it has
    /// to come to the same then. What it has written is on the disk when this returns. A stop ends it. Throws
    /// db::Error, and what the work throws.
    void write(const Work& work, const std::stop_token& stop);
    /// The same without a transaction, for work that writes nothing or one statement.
    void run(const Work& work, const std::stop_token& stop);

    /// While the database's file is not the one that it was, nothing is written: db::Error. From any thread.
    void suspend() { isSuspended_ = true; }
    void resume() { isSuspended_ = false; }

    /// Closes those that nobody uses; the others when they come back.
    void close() { pool_.close(); }

  private:
    static constexpr std::size_t Most = 4;
    base::ResourcePool<db::Connection> pool_{Most};
    std::atomic<bool> isSuspended_ = false;
};

}  // namespace tessaly::tessalyd
