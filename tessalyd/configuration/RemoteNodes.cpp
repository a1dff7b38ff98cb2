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

const NodeConfiguration* RemoteNodes::find(const std::string& aeTitle, const std::string& calledAeTitle,
                                           bool mustStore) const {
    const NodeConfiguration* chosen = nullptr;
    for (const NodeConfiguration& node : nodes_) {
        if ((mustStore && !node.store) || node.aeTitle != aeTitle || aeTitle.empty())
            continue;
        if (node.localAeTitle == calledAeTitle)
            return &node;
        if (chosen == nullptr)
            chosen = &node;
    }
    return chosen;
}

std::optional<RemoteNodes::Destination> RemoteNodes::destination(const std::string& aeTitle,
                                                                 const std::string& calledAeTitle) const {
    const NodeConfiguration* const chosen = find(aeTitle, calledAeTitle, true);
    if (chosen == nullptr)
        return std::nullopt;
    const bool hasLocalTitle = !chosen->localAeTitle.empty();
    return Destination{.node = chosen->name,
                       .peer = {.host = chosen->host,
                                .port = base::tcpPort(chosen->port).value_or(0),
                                .callingAeTitle = hasLocalTitle ? chosen->localAeTitle : calledAeTitle,
                                .calledAeTitle = chosen->aeTitle}};
}

std::optional<RemoteNodes::Destination> RemoteNodes::reportedTo(const std::string& aeTitle,
                                                                const std::string& calledAeTitle) const {
    const NodeConfiguration* const chosen = find(aeTitle, calledAeTitle, false);
    if (chosen == nullptr)
        return std::nullopt;
    return Destination{.node = chosen->name,
                       .peer = {.host = chosen->host,
                                .port = base::tcpPort(chosen->port).value_or(0),
                                .callingAeTitle = calledAeTitle,
                                .calledAeTitle = chosen->aeTitle}};
}

}  // namespace tessaly::tessalyd
