#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "db/Error.h"

namespace tessaly::db::detail {

// What differs from engine to engine, and nothing but text: no connection is needed to test it. For db/*.cpp
// alone; the tables of each engine stand in schema/.

/// An engine as its driver describes it, with what this folder knows of it by its name.
struct Engine {
    enum class Folding { None, Lower, Upper };  ///< of a name without quotes

    std::string name;                 ///< SQL_DBMS_NAME
    std::string quote;                ///< SQL_IDENTIFIER_QUOTE_CHAR
    Folding folding = Folding::None;  ///< SQL_IDENTIFIER_CASE

    [[nodiscard]] bool isPostgres() const;
    [[nodiscard]] bool isSqlite() const;

    /// A name as the catalogue has it, ready for a statement.
    [[nodiscard]] std::string quoted(std::string_view exactName) const;

    /// The statement in words that the engine reads, the same text where it reads them as they are. Rewritten
    /// are a name in brackets, the bare word User where it would be the session's own user, and a lock on the
    /// rows read (FOR UPDATE, FOR KEY SHARE, of one table or all), which goes where no other transaction
    /// could write them. Texts in quotes and comments stay as they are.
    [[nodiscard]] std::string rewritten(const std::string& statement) const;

    /// True where several transactions may write at the same time. Elsewhere one that writes is alone, and a
    /// row that it has read stays as it is.
    [[nodiscard]] bool supportsConcurrentWriters() const { return isPostgres(); }

    /// The statement that opens a session: one row, or a fault that keeps the session from being used. Its
    /// columns Version and Encoding, where it has them, are for refusal(). `lockWait` as
    /// Connection::setLockWait().
    [[nodiscard]] std::string opening(std::chrono::milliseconds lockWait) const;

    /// The statement that lists the engine's files, by columns name ("main" is the database's own) and file;
    /// empty for an engine whose databases are not files of this machine.
    [[nodiscard]] std::string listOfFiles() const;

    /// What gives the space of rows deleted from the tables back, statement by statement, none of them inside
    /// a transaction; none for an engine that is not known here.
    [[nodiscard]] std::vector<std::string> compaction(const std::vector<std::string>& tables) const;
    /// The statement that finds out whether they may be run: a reason in the column Refusal for each table
    /// that the engine would pass over without an error. Empty where it passes over none.
    [[nodiscard]] std::string compactionCheck(const std::vector<std::string>& tables) const;

    /// True where the driver reads a set into memory whole unless the session is opened for walks.
    [[nodiscard]] bool buffersResultSets() const { return isPostgres(); }

    /// True where SQLCancel may be called while another thread waits in the statement. The SQLite driver
    /// frees the statement that is running then.
    [[nodiscard]] bool endsStatementsFromElsewhere() const { return isPostgres(); }

    /// True where the driver goes on with a statement without parameters whose set was left before its end.
    [[nodiscard]] bool keepsLeftSets() const { return isSqlite(); }

  private:
    [[nodiscard]] std::string folded(std::string_view name) const;
};

/// Why the program cannot work on a PostgreSQL server of that number (server_version_num) and a database of
/// that encoding; nothing where it can.
[[nodiscard]] std::optional<std::string> refusal(long long version, std::string_view encoding);

/// What is added to every connect string. Drivers pass over the words of others. `walks`: the session is for
/// long walks alone, their rows are fetched as they are walked.
[[nodiscard]] std::string connectWords(bool walks);

/// What is added for Connection::setLockWait(), where the driver waits and not the engine.
[[nodiscard]] std::string waitWords(std::chrono::milliseconds lockWait);

/// The engine refused a row because a key would stand twice.
[[nodiscard]] bool isDuplicateKey(const Diagnostic& record);
/// The transaction was ended for what others did meanwhile; the same statements may well succeed anew.
[[nodiscard]] bool isConflict(const Diagnostic& record);
/// The session is gone and its connection good for nothing more.
[[nodiscard]] bool isLostSession(const Diagnostic& record);
/// The tables have changed since the statement was prepared.
[[nodiscard]] bool isStalePlan(const Diagnostic& record);

}  // namespace tessaly::db::detail
