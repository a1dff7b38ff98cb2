#pragma once

#include <chrono>
#include <string>

namespace tessaly::jobs {

/// The values of Job.State.
enum class State { Waiting = 0, Running = 1, Done = 2, GivenUp = 3, Uncertain = 4 };

/// "waiting", "running", "done", "given up", "uncertain".
[[nodiscard]] const char* nameOf(State state);

/// Whole seconds of the engine's clock, which all servers on a database share.
using Time = std::chrono::sys_seconds;

/// A job that is to be: work that outlives its association and its process.
struct NewJob {
    std::string kind;    ///< whose handler does it: "COMMIT", "FTP", "PRINT"
    std::string target;  ///< one job of a kind and a target runs at a time
    /// Tells one job of this kind from another; a second one of the same kind and key is not made. Nothing of
    /// a patient.
    std::string key;
    std::string subject = {};       ///< what it is about, for its handler: 4,000 characters at most
    std::string spool = {};         ///< the file or folder of the spool that is its own; empty without one
    std::chrono::seconds delay{0};  ///< until its first attempt
};

/// A row of the table Job.
struct Job {
    long long number = 0;
    std::string kind;
    std::string target;
    std::string key;
    std::string subject;
    std::string spool;
    std::string progress;  ///< what its handler has noted; empty at first
    State state = State::Waiting;
    int attempts = 0;    ///< that have ended with a transient fault
    Time nextAttempt{};  ///< of one that is done: when it was
    std::string lastError;
    Time created{};
    Time begun{};  ///< since when it is tried: created, or the last time that somebody had it retried
};

}  // namespace tessaly::jobs
