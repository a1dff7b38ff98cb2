#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "db/Connection.h"
#include "jobs/Job.h"

/// The table Job. Every operation throws db::Error; those that are one statement need no transaction, and may
/// be part of one.
namespace tessaly::jobs {

/// Adds a job, in the caller's transaction: the job is there exactly when what else is written in it is.
/// Returns false if there is one of the same kind and key already, which is left as it is.
bool add(const db::Connection& connection, const NewJob& job);

/// Begins a job that has ended (done or given up) anew: waiting, without attempts, due after the delay, with
/// the new subject and spool. Returns false if there is none of the kind and key in such a state.
bool renew(const db::Connection& connection, const NewJob& job);

[[nodiscard]] std::optional<Job> find(const db::Connection& connection, std::string_view kind,
                                      std::string_view key);
[[nodiscard]] std::optional<Job> find(const db::Connection& connection, long long number);
/// How many of a kind and a target are still to be done: they wait or run.
[[nodiscard]] long long countUnfinished(const db::Connection& connection, std::string_view kind,
                                        std::string_view target);

/// All of them, by their numbers.
void forEach(const db::Connection& connection, const std::function<void(const Job&)>& visit);

/// The engine's clock.
[[nodiscard]] Time now(const db::Connection& connection);

/// How long a claim holds unless it is renewed.
constexpr std::chrono::seconds LeaseTime{60};

/// Those that are due: waiting ones whose time has come, running ones whose owner has let its lease go. The
/// lane of none of them is busy. The longest due first, one a lane, `most` at most.
[[nodiscard]] std::vector<Job> due(const db::Connection& connection, std::size_t most);
/// Claims a job for an owner. Returns false if it is not due any more, or another one of its lane runs.
bool claim(const db::Connection& connection, long long number, std::string_view owner);
/// Claims the oldest job of a kind and a target that waits for another attempt, due or not: there is another
/// way to do it just now. Returns nullopt if there is none, or one of the lane runs. Not in a transaction.
[[nodiscard]] std::optional<Job> claimFailed(const db::Connection& connection, std::string_view kind,
                                             std::string_view target, std::string_view owner);
/// A name for an owner that nobody else has.
[[nodiscard]] std::string newOwner();
/// Returns false if the job is the owner's no more: what it does has to end.
bool extend(const db::Connection& connection, long long number, std::string_view owner);
/// Likewise. Keeps the handler's note (4,000 characters at most).
bool noteProgress(const db::Connection& connection, long long number, std::string_view owner,
                  std::string_view progress);
/// What becomes of a job whose attempt is over. Returns false if it is the owner's no more.
struct Ending {
    State state = State::Done;
    std::chrono::seconds delay{0};  ///< of one that waits: until the next attempt
    int attempts = 0;
    std::string error = {};  ///< cut at 255 characters
    /// Of one that is done: its nextAttempt when it was claimed. If that has changed, something was added to
    /// it meanwhile, and it waits for another attempt instead.
    std::optional<Time> claimedAt = {};
    bool beginsAnew = false;  ///< the time to give up counts from now on
};
bool finish(const db::Connection& connection, long long number, std::string_view owner, const Ending& ending);

/// Has a job that waits, was given up or is uncertain tried at once, as if it were new. Returns false if
/// there is none of that number in such a state.
bool retry(const db::Connection& connection, long long number);
/// Removes a job and its items, in whatever state: an attempt that runs is stopped within a second. Returns
/// the job, whose spool may be removed then; nothing if there is none.
std::optional<Job> drop(const db::Connection& connection, long long number);
/// Removes what was done more than `age` ago.
void forget(const db::Connection& connection, std::chrono::seconds age);

/// A job that is not done has this file or folder of a spool. One that is needs it no more, but its server
/// may have been killed before it was removed.
[[nodiscard]] bool hasSpool(const db::Connection& connection, std::string_view path);
/// Any job waits or runs, due or not.
[[nodiscard]] bool anyUnfinished(const db::Connection& connection);
/// Those that an owner runs.
[[nodiscard]] std::vector<long long> running(const db::Connection& connection, std::string_view owner);
/// For the check of a database: how many wait for longer than that, counted from their beginning, and how
/// many were given up or are uncertain.
struct Troubles {
    long long late = 0;
    long long givenUp = 0;
    long long uncertain = 0;
};
[[nodiscard]] Troubles troubles(const db::Connection& connection, std::chrono::seconds late);

/// What is added to a job while it waits, each in a row of its own, so that nobody who adds waits for others.
/// In the caller's transaction.
void addItem(const db::Connection& connection, std::string_view kind, std::string_view key,
             std::string_view item);
/// The same, and has the job begin when nothing was added for its delay: it is made if it is not there, put
/// off if it waits, begun anew if it has ended, and not done yet if it runs. One that waits after a fault
/// keeps its time. Whatever it does, no item is left without an attempt to come.
void addItemTo(const db::Connection& connection, const NewJob& job, std::string_view item);
struct Item {
    std::string item;
    Time added{};
};
/// When the last one was added that no attempt has begun with; nothing if there is none.
[[nodiscard]] std::optional<Time> lastAdded(const db::Connection& connection, std::string_view kind,
                                            std::string_view key);
/// Those that are there now, in the order in which they were added, with those of an attempt that failed. For
/// the one attempt that runs.
[[nodiscard]] std::vector<Item> takeItems(const db::Connection& connection, std::string_view kind,
                                          std::string_view key);
/// What takeItems() has given is done with.
void removeTaken(const db::Connection& connection, std::string_view kind, std::string_view key);

}  // namespace tessaly::jobs
