// Headers of images that are to become a volume, and how their frames are sorted.

#include <dcmtk/config/osconfig.h>

#include <array>
#include <cmath>
#include <cstring>
#include <set>
#include <stdexcept>
#include <utility>

#include "tessalyd/forwarding/volumes/StagedPixels.h"
#include "tessalyd/forwarding/volumes/VolumeLayout.h"
#include "tessalyd/forwarding/volumes/VolumeRefusal.h"
#include "tessalyd/forwarding/volumes/VolumeWriter.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/ObjectInMemory.h"
#include "tests/fuzz/SilentToolkit.h"

namespace {

using namespace tessaly;
using namespace tessaly::tessalyd::volumes;
using fuzz::require;

constexpr std::size_t FewFrames = 2000;

bool isFinite(const Vector& vector) {
    return std::isfinite(vector.x) && std::isfinite(vector.y) && std::isfinite(vector.z);
}

void checkAxes(const VolumeLayout& layout) {
    const AnatomicalAxes anatomy = anatomicalAxes(layout);
    std::set<std::size_t> from;
    for (const Axis& axis : anatomy.axes)
        from.insert(axis.from);
    require(from == std::set<std::size_t>{0, 1, 2});
    require(anatomy.degrees >= 0 && anatomy.degrees <= 90);
    // Each is more to its direction than against it.
    const Geometry geometry = geometryOf(layout, anatomy.axes);
    require(geometry.steps[0].x >= 0 && geometry.steps[1].y <= 0 && geometry.steps[2].z >= 0);
}

void checkLayout(const VolumeLayout& layout, std::set<std::pair<std::uint32_t, std::uint32_t>>& seen) {
    require(layout.slices.size() == layout.depth * layout.times && layout.depth > 0 && layout.times > 0);
    require(layout.rows > 0 && layout.rows <= LongestSide && layout.columns > 0 &&
            layout.columns <= LongestSide);
    require(isFinite(layout.origin));
    for (const Vector& step : layout.steps)
        require(isFinite(step) && length(step) > 0);
    require(std::isfinite(layout.secondsApart) && layout.secondsApart >= 0);
    for (const Slice& slice : layout.slices) {
        require(seen.insert({slice.object, slice.frame}).second);
        require(std::isfinite(slice.slope) && slice.slope != 0 && std::isfinite(slice.intercept));
    }
    checkAxes(layout);
}

}  // namespace

/// The first byte chooses the transfer syntax; what follows are data sets, parted by `|||`.
void tessaly::fuzz::tryInput(std::string_view input) {
    silenceToolkit();
    if (input.empty())
        return;
    constexpr std::array Syntaxes{"1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2",
                                  "1.2.840.10008.1.2.1.99", "1.2.840.10008.1.2.4.50"};
    const char* const syntax = Syntaxes[static_cast<unsigned char>(input.front()) % Syntaxes.size()];
    input.remove_prefix(1);
    const decoder::Heartbeat heartbeat = [] {};
    try {
        SliceGroups groups;
        for (std::uint32_t number = 0; !input.empty(); ++number) {
            const std::string_view part = input.substr(0, input.find("|||"));
            input.remove_prefix(std::min(input.size(), part.size() + 3));
            if (part.empty())
                continue;
            const dicom::ObjectFile object{"object", fuzz::objectInMemory(part, syntax)};
            ImageHeader header = readImageHeader(object, FewFrames, heartbeat);
            require(header.frames.size() <= FewFrames && header.frames.size() == header.image.frames);
            groups.add(number, std::move(header), heartbeat);
        }
        const std::size_t frames = groups.frames();
        std::set<std::pair<std::uint32_t, std::uint32_t>> seen;
        std::vector<VolumeLayout> layouts;
        for (SliceGroup& group : groups.take()) {
            layouts.push_back(layoutOf(std::move(group), heartbeat));
            checkLayout(layouts.back(), seen);
        }
        require(seen.size() == frames);
        for (const StagedVolume& volume : planStaging(std::move(layouts), std::uint64_t{1} << 40U))
            require(volume.at + volume.sliceBytes() * volume.layout.slices.size() <= std::uint64_t{1} << 40U);
    } catch (const VolumeRefusal& refusal) {
        const std::string_view what = refusal.what();
        require(!what.empty());
        for (const char c : what)
            require(c >= ' ' && c <= '~');
    }
}
