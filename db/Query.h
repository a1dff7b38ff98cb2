#pragma once

#include <chrono>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "db/Connection.h"
#include "db/Error.h"
#include "db/ResultSet.h"

namespace tessaly::db {

/// A parameter's declared type; the values are ODBC's own.
enum class Type { Undeclared = 0, Integer = 4, Varchar = 12, Bit = -7 };

/// A value for one `?`; an empty optional is NULL. Text is UTF-8; one with a NUL inside fails its statement.
struct Param {
    Type type = Type::Undeclared;
    std::variant<std::monostate, std::string, long long> value;
};

[[nodiscard]] inline Param varchar(std::string text) {
    return {Type::Varchar, std::move(text)};
}
[[nodiscard]] inline Param integer(long long number) {
    return {Type::Integer, number};
}
[[nodiscard]] inline Param bit(bool flag) {
    return {Type::Bit, static_cast<long long>(flag)};
}
[[nodiscard]] inline Param undeclared(std::string text) {
    return {Type::Undeclared, std::move(text)};
}
[[nodiscard]] inline Param undeclared(long long number) {
    return {Type::Undeclared, number};
}
[[nodiscard]] inline Param null(Type type) {
    return {type, std::monostate{}};
}

/// One statement with positional `?` markers. It is prepared by the first run and may be run again with other
/// values; what makes the preparation void (a lost session, a table that has changed) makes the next run
/// prepare anew. Its text is read by every engine: a name may stand in brackets, and User is a column like
/// any other. Keeps its connection alive; throws db::Error.
class Query {
  public:
    Query(const Connection& connection, std::string text);

    /// Binds the parameter at `position`, counted from 1.
    Query& bind(int position, Param value);
    /// Binds from the first parameter onward.
    Query& bindAll(std::vector<Param> values);

    /// How long the engine may take for one run, its rows included; zero: without limit. It fails then, with
    /// db::Error. Drivers that have no such limit pass over it, unless the engine works in this process.
    void setTimeout(std::chrono::seconds limit) { timeout_ = limit; }

    /// Asked some times a second while the engine works on a run or its rows, in a thread of its own or in
    /// that which runs it, but only while the latter is at it: true ends the run, which throws Stopped then;
    /// what it throws comes through. It must not use the connection. A transaction in which a statement was
    /// ended can only be rolled back. Empty: nobody is asked. Drivers that cannot end a statement pass over
    /// it.
    void setStop(std::function<bool()> isUnwanted) { isUnwanted_ = std::move(isUnwanted); }

    /// Runs a statement that returns rows, as a forward-only, read-only set, of which the first row has been
    /// fetched: a statement that cannot give it fails here. Throws while an earlier set of this query is
    /// still alive.
    [[nodiscard]] ResultSet open();

    /// Runs a statement once; nothing is read back from it.
    /// Gives the number of rows it changed, -1 where the driver does not know.
    long long execute();

  private:
    void run();
    void runOnce();
    /// PostgreSQL's driver cuts a text at a NUL, SQLite's cuts it when it is read; neither says so.
    void requireStorable(const detail::Statement& statement) const;

    std::shared_ptr<detail::SharedSession> sharedSession_;
    std::string text_;
    std::shared_ptr<detail::Statement> statement_;  // of the shared session, null before the first run
    std::vector<Param> params_;
    std::chrono::seconds timeout_{0};
    std::function<bool()> isUnwanted_;
};

/// Runs one statement with its parameters in order.
void execute(const Connection& connection, std::string text, std::initializer_list<Param> values = {});

}  // namespace tessaly::db
