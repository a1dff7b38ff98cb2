#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "jobs/JobTable.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/services/ServiceContext.h"
#include "tessalyd/services/commitment/CommitmentReport.h"

namespace tessaly::tessalyd {

/// Storage Commitment Push Model as SCP (PS3.4 annex J): takes requests, for which there is a job when they
/// are answered, and delivers reports that wait over the requestor's own association as well.
class CommitmentService final : public Service {
  public:
    /// The context outlives it.
    CommitmentService(ServiceContext& shared, const PortConfiguration& port)
        : shared_(shared), port_(port), settings_(shared.settings()) {}
    ~CommitmentService() override;

    [[nodiscard]] std::span<const SupportedContext> contexts() const noexcept override;
    [[nodiscard]] std::span<const CommandField> commands() const noexcept override;
    void answer(const Request& request, Association& association) override;
    [[nodiscard]] bool hasNews(const Association& association) override;
    void whileIdle(Association& association) override;
    [[nodiscard]] std::string summary() const override;

  private:
    using Clock = std::chrono::steady_clock;

    void check(const Request& request, const Association& association) const;
    void accept(const CommitmentParser& list, const Association& association);
    void reportOne(Association& association);
    void finish(const jobs::Ending& ending) noexcept;

    ServiceContext& shared_;
    const PortConfiguration& port_;
    std::shared_ptr<const ServiceSettings> settings_;
    int requests_ = 0;
    int reports_ = 0;
    Clock::time_point nextLook_{};
    bool isDeaf_ = false;
    std::optional<jobs::Job> reported_;  // claimed, sent, and not answered yet
    std::string owner_;
};

}  // namespace tessaly::tessalyd
