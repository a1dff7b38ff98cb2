#include "tessalyd/configuration/RemoteNodes.h"

#include <algorithm>

#include "base/TcpPort.h"

namespace tessaly::tessalyd {

namespace {

bool has(const NodeConfiguration& node, Right right) {
    switch (right) {
        case Right::Query:
            return node.query;
        case Right::Print:
            return node.print;
        case Right::None:
            break;
    }
    return true;
}

}  // namespace

bool RemoteNodes::has(Right right, const std::string& callingAeTitle) const {
    // A node without a title lets nobody in, not the caller that gives none.
    return right == Right::None ||
           (!callingAeTitle.empty() &&
            std::any_of(nodes_.begin(), nodes_.end(), [&](const NodeConfiguration& node) {
                return node.aeTitle == callingAeTitle && tessalyd::has(node, right);
            }));
}

std::optional<RemoteNodes::Destination> RemoteNodes::destination(const std::string& aeTitle,
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
    const bool hasLocalTitle = !chosen->localAeTitle.empty();
    return Destination{.node = chosen->name,
                       .peer = {.host = chosen->host,
                                .port = base::tcpPort(chosen->port).value_or(0),
                                .callingAeTitle = hasLocalTitle ? chosen->localAeTitle : calledAeTitle,
                                .calledAeTitle = chosen->aeTitle}};
}

}  // namespace tessaly::tessalyd
