#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "db/dialects/Diagnostic.h"
#include "db/dialects/Progress.h"
#include "db/dialects/Purpose.h"

namespace tessaly::db {

/// How an engine takes names, as its driver says.
struct Naming {
    enum class Folding { None, Lower, Upper };  ///< of a name without quotes

    std::string quote;                ///< SQL_IDENTIFIER_QUOTE_CHAR
    Folding folding = Folding::None;  ///< SQL_IDENTIFIER_CASE
};

/// What a row lock keeps others from doing with the row.
enum class RowLock {
    Removal,  ///< removing it, or giving it another key
    Change    ///< changing it in any way, and locking it
};
enum class OnLockedRow { Wait, Skip };

/// How a database is read so that nothing of it changes.
struct ReadOnlyAccess {
    std::string words;  ///< for the connect string
    /// Where nobody can be kept from writing meanwhile: a file that whoever reads compares afterwards, and
    /// one that is not there and is to stay away.
    std::filesystem::path unguarded = {};
    std::filesystem::path absent = {};
};

/// A file that the engine makes beside a database's own.
struct SideFile {
    std::string_view suffix;  ///< behind the path of the database
    bool hasContent;          ///< of the database: it would be taken for that of another file in its place
};

/// What differs from engine to engine. Nearly all of it is text, which is tested without a connection. One
/// class an engine, in one file of this folder; Registry.cpp lists them. What stands here is what an engine
/// does that no class knows, and the words that all known engines have in common. The tables of each engine
/// stand in schema/.
class Dialect {
  public:
    /// An attribute of a data source's entry by its name; empty without one.
    using Attributes = std::function<std::string(const char* name)>;
    /// A column of a row by its name.
    using Row = std::function<std::string(const char* column)>;

    explicit Dialect(Naming naming) : naming_(std::move(naming)) {}
    virtual ~Dialect() = default;
    Dialect(const Dialect&) = delete;
    Dialect& operator=(const Dialect&) = delete;

    /// SQL_DBMS_NAME. For messages, and for schema/, which keeps the tables by it: whoever else wants to know
    /// it has a question that belongs here.
    [[nodiscard]] virtual std::string_view engineName() const = 0;
    /// True for the file name of a library that is this engine's driver.
    [[nodiscard]] virtual bool isDriver(std::string_view library) const = 0;

    // Sessions.

    /// What is added to every connect string, whatever the engine: "Word=value", one or more, with semicolons
    /// between them. Drivers pass over the words of others.
    [[nodiscard]] virtual std::string connectWords(Purpose purpose) const = 0;
    /// Likewise for Connection::setLockWait(), where the driver waits and not the engine. `wait` is not zero.
    [[nodiscard]] virtual std::string lockWaitWords(std::chrono::milliseconds wait) const;
    /// The connect string of a connection that never comes about and is kept beside each session of that
    /// driver (SQL_DRIVER_NAME); empty where there is no need.
    [[nodiscard]] virtual std::string neverConnecting(const std::string& driver) const;
    /// The statement that opens a session: one row, or a fault that keeps the session from being used. Empty
    /// where there is none. `lockWait` as Connection::setLockWait().
    [[nodiscard]] virtual std::string opening(std::chrono::milliseconds lockWait) const;
    /// Why the program cannot work on the engine or the database that gave this first row; nothing where it
    /// can.
    [[nodiscard]] virtual std::optional<std::string> refusal(const Row& firstRow) const;
    /// What follows the opening, statement by statement.
    [[nodiscard]] virtual std::vector<std::string> settings(Purpose purpose) const;
    /// Before this thread connects, whichever engine it will be.
    virtual void expectConnection() const {}
    /// Of the session that this thread has connected just now by that connect string; null where the engine
    /// works elsewhere.
    [[nodiscard]] virtual std::unique_ptr<Progress> progress(const std::string& /*connectString*/) const {
        return nullptr;
    }

    // Pieces of statements.

    /// A name as the catalogue has it, ready for a statement.
    [[nodiscard]] std::string quoted(std::string_view exactName) const;
    /// The statement in words that the engine reads, the same text where it reads them as they are. Rewritten
    /// are a name in brackets, and a bare word that the engine has another meaning for. Texts in quotes and
    /// comments stay as they are.
    [[nodiscard]] std::string rewritten(const std::string& statement) const;
    /// An expression: the engine's clock, in whole seconds since 1970. Empty where it is not known.
    [[nodiscard]] virtual std::string currentSeconds() const = 0;
    /// The end of a statement that locks the rows that it reads, a blank before it; of one table where
    /// several are read. Empty where no other transaction could write them. With Skip, rows that others have
    /// locked are left out.
    [[nodiscard]] virtual std::string rowLock(RowLock lock, std::string_view table = {},
                                              OnLockedRow onLocked = OnLockedRow::Wait) const;
    /// Adds rows, "(?,?)" each, and leaves out those whose key is there already, also by a transaction that
    /// is under way elsewhere: the engine waits for its end then.
    [[nodiscard]] virtual std::string insertNew(std::string_view table, std::string_view columns,
                                                std::string_view rows) const;
    /// Gives a column of as many rows a value each, by their keys. The parameters are a value and a key, for
    /// each row.
    [[nodiscard]] virtual std::string updateEach(std::string_view table, std::string_view column,
                                                 std::string_view key, std::size_t rows) const;

    // Failures.

    /// Of the weightiest of the records.
    [[nodiscard]] FaultKind kindOf(std::span<const Diagnostic> records) const;

    // What the engine and its driver do.

    /// True where several transactions may write at the same time, and several connections are worth having.
    /// Elsewhere one that writes is alone, and a row that it has read stays as it is; those that must wait
    /// are better woken in turn by the program itself.
    [[nodiscard]] virtual bool supportsConcurrentWriters() const { return false; }
    /// True where the driver reads a set into memory whole on a session for that purpose.
    [[nodiscard]] virtual bool buffersResultSets(Purpose /*purpose*/) const { return false; }
    /// True where the driver reads a set into memory whole while a transaction of ODBC's own kind is open,
    /// and not while one is that was begun by the statement BEGIN.
    [[nodiscard]] virtual bool buffersInTransactions() const { return false; }
    /// True where SQLCancel may be called while another thread waits in the statement. An engine that works
    /// in this process has progress() instead.
    [[nodiscard]] virtual bool endsStatementsFromElsewhere() const { return false; }
    /// True where the driver goes on with a statement without parameters whose set was left before its end.
    [[nodiscard]] virtual bool keepsLeftSets() const { return false; }

    /// What gives the space of rows deleted from the tables back, statement by statement, none of them inside
    /// a transaction; empty where that is not known.
    [[nodiscard]] virtual std::vector<std::string> compaction(const std::vector<std::string>& tables) const;
    /// The description of the fault where it is not.
    [[nodiscard]] std::string withoutCompaction() const;
    /// The statement that finds out whether they may be run: a reason in the column Refusal for each table
    /// that the engine would pass over without an error. Empty where it passes over none.
    [[nodiscard]] virtual std::string compactionCheck(const std::vector<std::string>& tables) const;

    // Databases that are files.

    /// True where a database is a file of this machine, which programs can make and put in place.
    [[nodiscard]] virtual bool keepsFiles() const { return false; }
    /// The statement that lists the engine's files, by columns name ("main" is the database's own) and file;
    /// empty for an engine whose databases are not files of this machine.
    [[nodiscard]] virtual std::string listOfFiles() const;
    [[nodiscard]] virtual std::span<const SideFile> sideFiles() const { return {}; }
    /// Nothing changes in the file, and none beside it stays behind.
    [[nodiscard]] virtual ReadOnlyAccess readOnlyAccess(const std::filesystem::path& file) const;
    /// The statement that copies the database, as it is at one moment, into the file that is its parameter.
    [[nodiscard]] virtual std::string copyIntoFile() const;
    /// The statement whose first row and column is "ok" for a database without damage, or else says what is
    /// damaged.
    [[nodiscard]] virtual std::string soundnessCheck() const;

    // Data sources.

    /// The command line that makes a backup in that file, for databases that this program does not copy by
    /// itself. No password stands in it.
    [[nodiscard]] virtual std::string backupCommand(const Attributes& dataSource,
                                                    const std::filesystem::path& file) const;
    /// The attribute by which other programs on the data source leave a log that shows its password, and
    /// where they leave it; nothing where they leave none.
    [[nodiscard]] virtual std::optional<std::string> loggedPassword(const Attributes& dataSource) const;

  protected:
    /// Most drivers have the states of the standard.
    [[nodiscard]] virtual FaultKind kindOfRecord(const Diagnostic& record) const;
    /// The bare word means something else than the column of that name.
    [[nodiscard]] virtual bool isReserved(std::string_view word) const;
    /// A bare name as the engine takes it.
    [[nodiscard]] std::string folded(std::string_view name) const;

  private:
    Naming naming_;
};

}  // namespace tessaly::db
