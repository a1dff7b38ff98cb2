#pragma once

#include <chrono>
#include <list>
#include <string>
#include <string_view>

#include "db/Query.h"

namespace tessaly::db {

/// Statements of one connection that stay prepared for when they are needed again. Belongs to the
/// connection's thread; the connection is to outlive it. A statement in use is not handed out twice.
class StatementCache {
  public:
    explicit StatementCache(const Connection& connection) : connection_(connection) {}
    StatementCache(const StatementCache&) = delete;
    StatementCache& operator=(const StatementCache&) = delete;

    /// How long the engine may work on a statement where its driver can tell it so; zero: without limit.
    void setTimeout(std::chrono::seconds timeout) { timeout_ = timeout; }

    /// Takes a statement out; give() puts it back.
    [[nodiscard]] Query take(const std::string& text);
    void give(std::string text, Query statement);

  private:
    struct Entry {
        std::string text;
        Query statement;
    };
    static constexpr std::size_t Most = 32;

    const Connection& connection_;
    std::chrono::seconds timeout_{0};
    std::list<Entry> entries_;  // the last one used first
};

}  // namespace tessaly::db
