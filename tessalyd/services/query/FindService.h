#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "tessalyd/association/Service.h"
#include "tessalyd/services/query/QueryAnswers.h"
#include "tessalyd/services/query/QueryIdentifier.h"
#include "tessalyd/services/query/QueryRules.h"
#include "tessalyd/services/query/QuerySessions.h"

namespace tessaly::tessalyd {

/// C-FIND: the requester asks what the archive has.
class FindService final : public Service {
  public:
    /// The sessions outlive it.
    FindService(std::shared_ptr<const QueryRules> rules, QuerySessions& sessions)
        : rules_(std::move(rules)), sessions_(sessions) {}

    [[nodiscard]] T_DIMSE_Command command() const noexcept override { return DIMSE_C_FIND_RQ; }
    [[nodiscard]] std::span<const SupportedContext> supportedContexts() const noexcept override;
    /// Relational queries, and dates and times that are compared together.
    [[nodiscard]] std::vector<std::uint8_t> negotiateExtended(
        const std::string& sopClass, std::span<const std::uint8_t> proposed) override;
    void answer(const Request& request, Requester& requester) override;
    [[nodiscard]] std::string summary() const override;

  private:
    [[nodiscard]] QueryIdentifier read(const Request& request, Requester& requester) const;
    /// True when the requester has cancelled it.
    [[nodiscard]] bool sendAnswers(QueryIdentifier query, const Request& request, Requester& requester);
    /// Has a session no longer than the reading takes: a requester that does not take its answers keeps none.
    /// False when the query was cancelled before there was one.
    [[nodiscard]] bool read(QueryAnswers& answers, const std::function<bool()>& isCancelled);

    std::shared_ptr<const QueryRules> rules_;
    QuerySessions& sessions_;
    std::map<std::string, QueryOptions> options_;  // by SOP class
    std::uint64_t queries_ = 0;
    std::uint64_t found_ = 0;
};

}  // namespace tessaly::tessalyd
