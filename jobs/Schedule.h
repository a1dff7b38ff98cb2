#pragma once

#include "jobs/Job.h"
#include "jobs/JobTable.h"
#include "jobs/Runner.h"

namespace tessaly::jobs {

/// What becomes of a job whose attempt came to this, at that time of the engine's clock.
[[nodiscard]] Ending endingOf(const Job& job, const Outcome& outcome, Time now, const RunnerOptions& options);

}  // namespace tessaly::jobs
