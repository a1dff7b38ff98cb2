#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "db/dialects/Diagnostic.h"

namespace tessaly::db {

/// Every fault of this layer; those that callers tell apart are the types below. what() is the description
/// that the user is shown: the first diagnostic's message, unchanged. Thrown by value, caught by const
/// reference.
class Error : public std::runtime_error {
  public:
    /// `Number` of a row that the engine refused because a key would stand twice.
    static constexpr int DuplicateKeyNumber = 40002;

    /// From the driver. `diagnostics` must not be empty; `statement` is the SQL text or empty.
    Error(std::vector<Diagnostic> diagnostics, std::string statement);
    /// From this layer itself: a wrong column name, a closed connection.
    explicit Error(const std::string& description);

    /// DuplicateKeyNumber, or else the first record's native code (0 for a fault of this layer).
    [[nodiscard]] int Number() const noexcept { return number_; }
    [[nodiscard]] const std::string& sqlState() const noexcept { return diagnostics_.front().sqlState; }
    [[nodiscard]] int nativeCode() const noexcept { return diagnostics_.front().nativeCode; }
    [[nodiscard]] const std::vector<Diagnostic>& diagnostics() const noexcept { return diagnostics_; }
    [[nodiscard]] const std::string& statement() const noexcept { return statement_; }

  protected:
    Error(std::vector<Diagnostic> diagnostics, std::string statement, int number);

  private:
    std::vector<Diagnostic> diagnostics_;
    std::string statement_;
    int number_ = 0;
};

/// The engine refused a row because a key would stand twice.
class DuplicateKey : public Error {
  public:
    DuplicateKey(std::vector<Diagnostic> diagnostics, std::string statement)
        : Error(std::move(diagnostics), std::move(statement), DuplicateKeyNumber) {}
};

/// The transaction was ended because of what others did at the same time (a deadlock, for one). The same
/// statements may well succeed in another one.
class Conflict : public Error {
  public:
    using Error::Error;
};

/// The session with the engine is gone; outside a transaction the next statement begins another.
class LostSession : public Error {
  public:
    using Error::Error;
};

/// The session was lost while a transaction was being committed: nobody can say whether its changes are kept.
class OutcomeUnknown : public LostSession {
  public:
    explicit OutcomeUnknown(const LostSession& fault) : LostSession(fault) {}
};

/// The tables have changed since the statement was prepared. Query meets it by preparing the statement anew,
/// outside a transaction.
class StalePlan : public Error {
  public:
    using Error::Error;
};

/// A statement was ended because nobody wanted it any more (Query::setStop()).
class Stopped : public Error {
  public:
    Stopped() : Error("The statement was stopped") {}
};

/// Throws the type of that kind. `diagnostics` must not be empty.
[[noreturn]] void throwError(FaultKind kind, std::vector<Diagnostic> diagnostics, std::string statement);

}  // namespace tessaly::db
