#include "tessalyd/services/ServiceContext.h"

namespace tessaly::tessalyd {

void ServiceContext::configure(const Configuration& configuration) {
    auto settings = std::make_shared<const ServiceSettings>(
        ServiceSettings{.nodes = std::make_shared<const RemoteNodes>(configuration.nodes),
                        .queryTimeout = configuration.queryTimeout,
                        .hasOlderRows = configuration.hasOlderRows});
    {
        const std::lock_guard lock{mutex_};
        settings_ = std::move(settings);
    }
    sessions.close();
}

std::shared_ptr<const ServiceSettings> ServiceContext::settings() const {
    const std::lock_guard lock{mutex_};
    return settings_;
}

void ServiceContext::closeSessions() {
    index.close();
    sessions.close();
    jobs.close();
}

}  // namespace tessaly::tessalyd
