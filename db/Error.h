#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace tessaly::db {

/// One diagnostic record as the driver gave it; text is UTF-8.
struct Diagnostic {
    std::string sqlState;  ///< five characters, "HY000" where the driver knows no better
    int nativeCode = 0;    ///< the engine's own number
    std::string message;
};

/// Every fault of this layer. what() is the description that the user is shown: the first diagnostic's
/// message, unchanged. Thrown by value, caught by const reference.
class Error : public std::runtime_error {
  public:
    /// `Number` of a row that the engine refused because a key would stand twice.
    static constexpr int DuplicateKey = 40002;

    /// From the driver. `diagnostics` must not be empty; `statement` is the SQL text or empty.
    Error(std::vector<Diagnostic> diagnostics, std::string statement, bool lostSession = false);
    /// From this layer itself: a wrong column name, a closed connection.
    explicit Error(const std::string& description);

    /// DuplicateKey, or else the first record's native code (0 for a fault of this layer).
    [[nodiscard]] int Number() const noexcept { return number_; }
    /// The engine ended the transaction because of what others did at the same time (a deadlock, for one).
    /// The same statements may well succeed in another one.
    [[nodiscard]] bool isConflict() const noexcept { return conflict_; }
    /// The session with the engine is gone; outside a transaction the next statement begins another.
    [[nodiscard]] bool isLostSession() const noexcept { return lostSession_; }
    [[nodiscard]] const std::string& sqlState() const noexcept { return diagnostics_.front().sqlState; }
    [[nodiscard]] int nativeCode() const noexcept { return diagnostics_.front().nativeCode; }
    [[nodiscard]] const std::vector<Diagnostic>& diagnostics() const noexcept { return diagnostics_; }
    [[nodiscard]] const std::string& statement() const noexcept { return statement_; }

  private:
    std::vector<Diagnostic> diagnostics_;
    std::string statement_;
    int number_ = 0;
    bool conflict_ = false;
    bool lostSession_ = false;
};

/// A statement was ended because nobody wanted it any more (Query::setStop()).
class Stopped : public Error {
  public:
    Stopped() : Error("The statement was stopped") {}
};

/// The session was lost while a transaction was being committed: nobody can say whether its changes are kept.
class OutcomeUnknown : public Error {
  public:
    explicit OutcomeUnknown(const Error& fault) : Error(fault) {}
};

}  // namespace tessaly::db
