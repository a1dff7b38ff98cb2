#pragma once

#include <chrono>
#include <map>
#include <string>

#include "jobs/Runner.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/services/ServiceContext.h"

namespace tessaly::tessalyd {

/// Everything that this server does for an association. The context outlives the factory and what it makes,
/// and has been configured before the first association.
[[nodiscard]] ServiceFactory allServices(ServiceContext& shared);

/// What does this server's jobs, by their kinds. The context outlives them. `peerTimeout` is for each answer
/// of a printer.
[[nodiscard]] std::map<std::string, jobs::Handler> jobHandlers(ServiceContext& shared,
                                                               std::chrono::seconds peerTimeout);

}  // namespace tessaly::tessalyd
