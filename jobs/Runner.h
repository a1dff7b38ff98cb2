#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "db/Connection.h"
#include "jobs/Job.h"
#include "jobs/Spool.h"

namespace tessaly::jobs {

/// What an attempt came to.
struct Outcome {
    enum class Kind {
        Done,
        Retry,      ///< a transient fault: tried again by the schedule
        GiveUp,     ///< a permanent one
        Uncertain,  ///< nobody knows whether it happened; waits for an administrator
        Postpone,  ///< there was nothing to do yet, or there is more by now: again after the delay, as if new
        Stopped    ///< it came to no end: again as soon as may be, no fault
    };
    Kind kind = Kind::Done;
    std::string reason = {};  ///< of a fault, for log and table; printable, nothing of a patient
    std::chrono::seconds delay{0};
};

/// One attempt at a job, for its handler. Belongs to the handler's thread.
class Attempt {
  public:
    virtual ~Attempt() = default;
    [[nodiscard]] virtual const Job& job() const noexcept = 0;
    /// Requested when the server stops, somebody drops the job, or the lease is lost; the handler comes back
    /// within 0.2 s.
    [[nodiscard]] virtual const std::stop_token& stop() const noexcept = 0;
    /// Keeps a note with the job, durably. Throws std::runtime_error if the job is not ours any more, the
    /// database is not there, or it says nothing for a second after the stop.
    virtual void noteProgress(const std::string& note) = 0;
};

/// Does one kind of job. Called in a thread of the attempt's own; what it throws is a transient fault.
using Handler = std::function<Outcome(Attempt&)>;

enum class Severity { Debug, Info, Error };
/// A line for the log, from any thread; must not throw.
using Report = std::function<void(Severity, const std::string& line)>;

/// Opens a connection whose commits survive a power failure. Throws db::Error. From any thread.
using Connect = std::function<void(db::Connection&)>;

struct RunnerOptions {
    std::chrono::seconds firstRetry{60};
    std::chrono::seconds giveUp{std::chrono::hours{72}};
    std::size_t atATime = 8;
};

/// How long after the end of the `attempts`-th failed attempt the next one begins: 1, 2, 5, 10, 30 and then
/// always 60 times firstRetry.
[[nodiscard]] std::chrono::seconds retryDelay(int attempts, std::chrono::seconds firstRetry);

/// Runs the jobs of the database, as one of perhaps several servers: claims what is due, renews the leases,
/// writes down what came of it. Thread-safe but for start() and stop().
class Runner {
  public:
    /// The handlers by the kinds of their jobs.
    Runner(std::map<std::string, Handler> handlers, Connect connect, Report report,
           RunnerOptions options = {});
    ~Runner();
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    /// Begins; nothing happens when it runs. What belongs to no job is removed from the spools of the roots.
    /// What cannot be had of the database is tried again every 5 s.
    void start(std::vector<Spool> spools = {});
    /// Stops the attempts, waits for their end, gives their jobs back and closes the database.
    void stop();
    /// A job may be due now, or was dropped.
    void wake();

  private:
    class Work;
    std::unique_ptr<Work> work_;
};

}  // namespace tessaly::jobs
