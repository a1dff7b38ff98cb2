#pragma once

#include <exception>
#include <functional>
#include <memory>

#include "db/Odbc.h"

namespace tessaly::db::detail {

/// While one ODBC call of a statement lasts: asks some times a second whether the statement is still wanted
/// (Query::setStop()), and has the engine end it when it is not.
///
/// An engine that works in this process calls back in the thread of the statement, where the question is
/// asked and the time-out kept. For another engine the question is asked in a thread of its own, while the
/// statement's thread waits in the call: what is asked may use whatever belongs to that thread. In neither
/// case does a question that takes long delay those of other statements.
class StatementCanceller final : private Progress::Listener {
  public:
    /// To be called when a run begins, which the calls of its rows belong to.
    static void beginRun(Statement& statement, const std::function<bool()>& isUnwanted);

    /// Nothing happens where the run has neither a question nor a time-out, or the engine's driver cannot end
    /// a statement. The statement outlives it.
    explicit StatementCanceller(Statement& statement);
    /// Waits for a question that is under way.
    ~StatementCanceller();
    StatementCanceller(const StatementCanceller&) = delete;
    StatementCanceller& operator=(const StatementCanceller&) = delete;

    /// Makes the call and checks its result. Throws Stopped when the statement was not wanted any more,
    /// whatever came of the call, and what the question threw.
    template <class Call>
    SQLRETURN run(Call call) {
        SQLRETURN result = SQL_ERROR;
        try {
            result = statement_.check(call());
        } catch (const Error&) {
            end();  // it was ended, or failed by itself
            throw;
        }
        end();
        return result;
    }

  private:
    class Watcher;
    struct Watched;

    [[nodiscard]] bool endsStatement() noexcept override;
    void end();
    void finish();

    Statement& statement_;
    bool listens_ = false;
    bool isStopped_ = false;
    bool isLate_ = false;
    std::exception_ptr fault_;  // of the question
    std::unique_ptr<Watched> watched_;
};

}  // namespace tessaly::db::detail
