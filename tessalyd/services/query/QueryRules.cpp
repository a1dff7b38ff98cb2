#include "tessalyd/services/query/QueryRules.h"

#include <algorithm>

#include "tessalyd/association/Requester.h"

namespace tessaly::tessalyd {

QueryRules::QueryRules(const Configuration& configuration)
    : nodes_(configuration.nodes),
      timeout_(configuration.queryTimeout),
      olderRows_(configuration.hasOlderRows) {}

bool QueryRules::mayQuery(const std::string& callingAeTitle) const {
    // A node without a title lets nobody in, not the caller that gives none.
    return !callingAeTitle.empty() &&
           std::any_of(nodes_.begin(), nodes_.end(), [&callingAeTitle](const NodeConfiguration& node) {
               return node.query && node.aeTitle == callingAeTitle;
           });
}

void QueryRules::require(const Requester& requester) const {
    if (mayQuery(requester.names().callingAeTitle))
        return;
    requester.log(PeerLog::Event::Refusal, "refused: no node with this AE title may query");
    constexpr DIC_US NotAuthorized = 0x0124;
    throw RequestFailure{NotAuthorized, "The calling AE title may not query here"};
}

std::optional<QueryRules::Destination> QueryRules::destination(const std::string& aeTitle,
                                                               const std::string& calledAeTitle) const {
    const NodeConfiguration* chosen = nullptr;
    for (const NodeConfiguration& node : nodes_) {
        if (!node.store || node.aeTitle != aeTitle || aeTitle.empty())
            continue;
        if (node.localAeTitle == calledAeTitle) {
            chosen = &node;
            break;
        }
        if (chosen == nullptr)
            chosen = &node;
    }
    if (chosen == nullptr)
        return std::nullopt;
    return Destination{
        .node = chosen->name,
        .aeTitle = chosen->aeTitle,
        .host = chosen->host,
        .port = chosen->port,
        .callingAeTitle = chosen->localAeTitle.empty() ? calledAeTitle : chosen->localAeTitle,
    };
}

}  // namespace tessaly::tessalyd
