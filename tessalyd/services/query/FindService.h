#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "tessalyd/association/Service.h"
#include "tessalyd/services/ServiceContext.h"
#include "tessalyd/services/query/QueryAnswers.h"
#include "tessalyd/services/query/QueryIdentifier.h"

namespace tessaly::tessalyd {

/// C-FIND: the requestor asks what the archive has.
class FindService final : public Service {
  public:
    explicit FindService(ServiceContext& shared) : settings_(shared.settings()), sessions_(shared.sessions) {}

    [[nodiscard]] std::span<const SupportedContext> contexts() const noexcept override;
    [[nodiscard]] std::span<const CommandField> commands() const noexcept override;
    /// Relational queries, and dates and times that are compared together.
    [[nodiscard]] std::vector<std::uint8_t> negotiateExtended(
        const std::string& sopClass, std::span<const std::uint8_t> proposed) override;
    void answer(const Request& request, Association& association) override;
    [[nodiscard]] std::string summary() const override;

  private:
    [[nodiscard]] QueryIdentifier read(const Request& request, Association& association) const;
    /// True when the requestor has cancelled it.
    [[nodiscard]] bool sendAnswers(QueryIdentifier query, const Request& request, Association& association);
    /// Has a session no longer than the reading takes: a requestor that does not take its answers keeps none.
    /// False when the query was cancelled before there was one.
    [[nodiscard]] bool read(QueryAnswers& answers, const std::function<bool()>& isCancelled);

    std::shared_ptr<const ServiceSettings> settings_;
    QuerySessions& sessions_;
    std::map<std::string, QueryOptions> options_;  // by SOP class
    std::uint64_t queries_ = 0;
    std::uint64_t found_ = 0;
};

}  // namespace tessaly::tessalyd
