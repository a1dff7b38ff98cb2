#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

class Requester;

/// What one configuration says of queries and retrievals. Does not change; titles are compared with regard to
/// case.
class QueryRules {
  public:
    explicit QueryRules(const Configuration& configuration);

    /// How long a statement may take; zero: without limit.
    [[nodiscard]] std::chrono::seconds timeout() const noexcept { return timeout_; }
    /// Whether the archive has rows that an upgrade has not filled yet.
    [[nodiscard]] bool haveOlderRows() const noexcept { return olderRows_; }

    /// Whether the calling title is that of a node with the flag Query.
    [[nodiscard]] bool mayQuery(const std::string& callingAeTitle) const;
    /// The same of who has asked: throws RequestFailure, with a line in the log, when it may not.
    void require(const Requester& requester) const;

    /// Where objects for an AE title go.
    struct Destination {
        std::string node;  ///< its name, for the log
        std::string aeTitle;
        std::string host;
        std::string port;
        std::string callingAeTitle;  ///< that the server presents itself by
    };
    /// The node with the flag Store that has the title. Of several, first the one whose local title is the
    /// called title of the association that asks, then the first by name. A node without a local title gets
    /// the called one.
    [[nodiscard]] std::optional<Destination> destination(const std::string& aeTitle,
                                                         const std::string& calledAeTitle) const;

  private:
    std::vector<NodeConfiguration> nodes_;  // by name
    std::chrono::seconds timeout_;
    bool olderRows_;
};

}  // namespace tessaly::tessalyd
