#pragma once

#include <functional>
#include <memory>

#include "db/Odbc.h"

namespace tessaly::db::detail {

/// While a statement runs: asks, some times a second and in a thread of its own, whether it is still wanted,
/// and has the engine end it when it is not. For the length of one ODBC call of the statement's own thread,
/// which waits in it meanwhile: what is asked may use whatever belongs to that thread. A question that takes
/// long does not delay those of other statements.
class StatementCanceller {
  public:
    /// Nothing happens where `isUnwanted` is empty or the engine's driver cannot end a statement from another
    /// thread. Both arguments outlive it.
    StatementCanceller(const Statement& statement, const std::function<bool()>& isUnwanted);
    /// Waits for a question that is under way.
    ~StatementCanceller();
    StatementCanceller(const StatementCanceller&) = delete;
    StatementCanceller& operator=(const StatementCanceller&) = delete;

    /// To be called right after the ODBC call. Throws Stopped when the statement was not wanted any more,
    /// whatever came of it, and what the question threw.
    void end();

  private:
    class Watcher;
    struct Watched;
    void finish();

    std::unique_ptr<Watched> watched_;
};

}  // namespace tessaly::db::detail
