#pragma once

#include <iosfwd>
#include <string>

namespace tessaly::tool {

/// Writes a line a job, by their numbers: number, kind, target, state, attempts, next attempt (local time; of
/// a job that is done, when that was), last error, age. Throws std::runtime_error or what derives from it, as
/// all of these do.
void listJobs(const std::string& dsn, std::ostream& out);

/// Has a job, by its number, tried at once that waits, was given up or is uncertain; "all": each of them that
/// was given up or waits for another attempt.
void retryJobs(const std::string& dsn, const std::string& which);

/// Removes a job for good, and what it has in the spool. One that runs is ended.
void dropJob(const std::string& dsn, const std::string& number);

}  // namespace tessaly::tool
