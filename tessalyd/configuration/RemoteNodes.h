#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dicom/net/PeerAddress.h"
#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

/// What a node may do here, by its flags.
enum class Right : std::uint8_t {
    None,  ///< what everybody may
    Query,
    Print
};

/// The remote nodes of one configuration. Does not change; titles are compared with regard to case.
class RemoteNodes {
  public:
    /// In the order of their names.
    explicit RemoteNodes(std::vector<NodeConfiguration> nodes) : nodes_(std::move(nodes)) {}

    /// Whether the calling AE title is that of a node that has the right.
    [[nodiscard]] bool has(Right right, const std::string& callingAeTitle) const;

    struct Destination {
        std::string node;  ///< its name, for the log
        dicom::PeerAddress peer;
    };
    /// The node with the flag Store that has the AE title. Of several, first the one whose local title is the
    /// called title of the association that asks, then the first by name. A node without a local title gets
    /// the called one.
    [[nodiscard]] std::optional<Destination> destination(const std::string& aeTitle,
                                                         const std::string& calledAeTitle) const;

    /// Likewise any node, with Store or without; the title that it is called with is the called one.
    [[nodiscard]] std::optional<Destination> reportedTo(const std::string& aeTitle,
                                                        const std::string& calledAeTitle) const;

  private:
    [[nodiscard]] const NodeConfiguration* find(const std::string& aeTitle, const std::string& calledAeTitle,
                                                bool mustStore) const;

    std::vector<NodeConfiguration> nodes_;
};

}  // namespace tessaly::tessalyd
