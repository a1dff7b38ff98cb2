#pragma once

#include <chrono>

#include "jobs/Runner.h"

namespace tessaly::tessalyd::films {

/// The kind of the jobs that print: their subject is the spool folder of a PrintOrder, their target the
/// printer's lane.
inline constexpr const char* PrintKind = "PRINT";

struct PrintingOptions {
    /// For each answer of a printer; the one to a print command has three times as long.
    std::chrono::milliseconds answer{60'000};
};

/// Prints the films of a job, one by one. What was printed is kept with the job, and before a printer is told
/// to print a film, that it will be: a film whose printing was asked for and not answered is never asked for
/// again, unless an administrator has the job retried.
[[nodiscard]] jobs::Handler printHandler(const PrintingOptions& options = {});

}  // namespace tessaly::tessalyd::films
