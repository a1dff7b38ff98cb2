#include "tessalyd/forwarding/images/HeaderWalk.h"

#include <algorithm>
#include <vector>

#include "dicom/data/Inflater.h"
#include "tessalyd/forwarding/images/ImageRefusal.h"

namespace tessaly::tessalyd::images {

namespace {

constexpr std::size_t BlockSize = std::size_t{32} << 10U;
constexpr std::size_t MostInflated = std::size_t{64} << 20U;

void walkDeflated(const dicom::ObjectFile& object, dicom::ElementWalk& walk,
                  const decoder::Heartbeat& heartbeat) {
    dicom::Inflater inflater;
    std::vector<char> block(BlockSize);
    std::size_t inflated = 0;
    for (std::size_t at = 0; at < object.size() && inflater.state() == dicom::Inflater::State::Open;) {
        const std::span part = std::span{block}.first(std::min(block.size(), object.size() - at));
        object.readAt(at, part);
        at += part.size();
        inflater.inflate(part, [&](std::span<const char> bytes) {
            heartbeat();
            inflated += bytes.size();
            if (inflated > MostInflated)
                throw ImageRefusal{"an image's header does not end"};
            walk.take(bytes);
            return walk.isEnded();
        });
    }
    if (inflater.state() == dicom::Inflater::State::Broken)
        throw ImageRefusal{"an image cannot be inflated"};
}

}  // namespace

void walkHeader(const dicom::ObjectFile& object, HeaderVisitor& visitor,
                const decoder::Heartbeat& heartbeat) {
    const dicom::TransferSyntax syntax{object.kind().transferSyntax};
    if (!syntax.isKnown())
        throw ImageRefusal{"an image's transfer syntax is unknown"};
    dicom::ElementWalk walk{syntax, dicom::ElementWalk::Reading::ByRepresentation, visitor};
    if (syntax.isDeflated()) {
        walkDeflated(object, walk, heartbeat);
    } else {
        std::vector<char> block(BlockSize);
        for (std::size_t at = 0; at < object.size() && !walk.isEnded();) {
            heartbeat();
            if (walk.passable() > 0 && !visitor.wantsValue()) {
                const auto passed = std::min<std::uint64_t>(walk.passable(), object.size() - at);
                walk.pass(passed);
                at += static_cast<std::size_t>(passed);
                continue;
            }
            const std::span part = std::span{block}.first(std::min(block.size(), object.size() - at));
            object.readAt(at, part);
            at += part.size();
            walk.take(part);
        }
    }
    if (walk.isTooDeep() || (!walk.isEnded() && walk.isIncomplete()))
        throw ImageRefusal{"an image's header cannot be read"};
}

}  // namespace tessaly::tessalyd::images
