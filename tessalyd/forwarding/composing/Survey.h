#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "decoder/JobPlan.h"
#include "tessalyd/forwarding/composing/PresentationState.h"
#include "tessalyd/search/InstanceList.h"

namespace tessaly::tessalyd::composing {

/// An image that is to be on a film.
struct FoundImage {
    StoredInstance instance;
    std::string series;
    std::int64_t seriesNumber = 0;
    std::int64_t instanceNumber = 0;
    std::uint64_t frames = 1;
};

/// What is to be printed of a study, its images in the order of series number and instance number; those
/// without a number come last.
struct FoundStudy {
    std::string uid;
    std::vector<FoundImage> images;
    std::vector<PresentationState> states;
    std::vector<std::string> stateUids;  ///< as many
};

/// Is told of an instance that cannot be printed, and why.
using Failed = std::function<void(const std::string& sopInstanceUid, const std::string& reason)>;

/// Reads the headers of all instances. An image with more than `mostFrames` fails. Studies come in the order
/// of their first instances. What `heartbeat` throws comes through.
[[nodiscard]] std::vector<FoundStudy> survey(InstanceList& instances, std::uint64_t mostFrames,
                                             const Failed& failed, const decoder::Heartbeat& heartbeat);

}  // namespace tessaly::tessalyd::composing
