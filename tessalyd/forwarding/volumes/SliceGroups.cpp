#include <algorithm>
#include <cmath>
#include <utility>

#include "tessalyd/forwarding/volumes/VolumeLayout.h"
#include "tessalyd/forwarding/volumes/VolumeRefusal.h"

namespace tessaly::tessalyd::volumes {

namespace {

constexpr double Direction = 1e-4;  // what direction cosines of one orientation may differ by
constexpr double Relative = 1e-4;   // the same of distances and times
constexpr double Perpendicular = 1e-2;

bool isNear(double a, double b) {
    return std::abs(a - b) <= Relative * std::max(std::abs(a), std::abs(b));
}

bool isNear(const Vector& a, const Vector& b) {
    return std::abs(a.x - b.x) <= Direction && std::abs(a.y - b.y) <= Direction &&
           std::abs(a.z - b.z) <= Direction;
}

bool belongTogether(const SliceGroup& a, const SliceGroup& b) {
    return a.rows == b.rows && a.columns == b.columns && a.type == b.type && isNear(a.echoTime, b.echoTime) &&
           isNear(a.spacing[0], b.spacing[0]) && isNear(a.spacing[1], b.spacing[1]) &&
           isNear(a.orientation[0], b.orientation[0]) && isNear(a.orientation[1], b.orientation[1]);
}

PixelFormat formatOf(const decoder::ImageDescription& image) {
    if (image.samplesPerPixel != 1 || !image.photometric.starts_with("MONOCHROME"))
        throw VolumeRefusal{"an image has colours"};
    const PixelFormat format{.bitsAllocated = image.bitsAllocated,
                             .bitsStored = image.bitsStored,
                             .highBit = image.highBit,
                             .isSigned = image.pixelRepresentation == 1};
    const bool hasWidth =
        format.bitsAllocated == 8 || format.bitsAllocated == 16 || format.bitsAllocated == 32;
    if (!hasWidth || format.bitsStored == 0 || format.highBit >= format.bitsAllocated ||
        format.highBit + 1 < format.bitsStored || image.pixelRepresentation > 1)
        throw VolumeRefusal{"an image has pixels that are no integers of 8, 16 or 32 bits"};
    if (image.rows == 0 || image.columns == 0)
        throw VolumeRefusal{"an image has no rows or no columns"};
    if (image.rows > LongestSide || image.columns > LongestSide)
        throw VolumeRefusal{"an image has more than 32767 rows or columns"};
    return format;
}

double thicknessOf(const FrameAttributes& frame) {
    for (const auto& distance : {frame.sliceSpacing, frame.sliceThickness})
        if (distance && std::abs(*distance) > 0)
            return std::abs(*distance);
    return 1;
}

SliceGroup geometryOf(const decoder::ImageDescription& image, const FrameAttributes& frame) {
    if (!frame.position || !frame.orientation || !frame.spacing)
        throw VolumeRefusal{"an image does not say where it is"};
    const auto& [alongRow, alongColumn] = *frame.orientation;
    if (std::abs(length(alongRow) - 1) > Perpendicular || std::abs(length(alongColumn) - 1) > Perpendicular ||
        std::abs(dot(alongRow, alongColumn)) > Perpendicular)
        throw VolumeRefusal{"an image's orientation is no pair of perpendicular directions"};
    return {.rows = image.rows,
            .columns = image.columns,
            .orientation = *frame.orientation,
            .spacing = *frame.spacing,
            .thickness = thicknessOf(frame),
            .echoTime = frame.echoTime.value_or(-1),
            .repetitionTime = std::max(0.0, frame.repetitionTime.value_or(0)),
            .type = frame.type.value_or("")};
}

}  // namespace

void SliceGroups::add(std::uint32_t object, ImageHeader header, const decoder::Heartbeat& heartbeat) {
    if (!header.hasPixelData)
        throw VolumeRefusal{"an object has no pixel data"};
    const PixelFormat format = formatOf(header.image);
    if (header.isMosaic)
        throw VolumeRefusal{"an image is a mosaic of slices"};
    if (header.hasModalityTable)
        throw VolumeRefusal{"an image's values are given by a table"};
    for (std::size_t i = 0; i < header.frames.size(); ++i) {
        heartbeat();
        const FrameAttributes& frame = header.frames[i];
        SliceGroup& group = groupOf(geometryOf(header.image, frame));
        const double slope = frame.slope.value_or(1);
        group.slices.push_back({.position = *frame.position,
                                .slope = slope == 0 ? 1 : slope,  // no scale is 0
                                .intercept = frame.intercept.value_or(0),
                                .temporalPosition = frame.temporalPosition,
                                .acquisitionTime = frame.acquisitionTime,
                                .instanceNumber = header.instanceNumber,
                                .object = object,
                                .frame = static_cast<std::uint32_t>(i),
                                .format = format});
        ++frames_;
    }
}

SliceGroup& SliceGroups::groupOf(const SliceGroup& wanted) {
    if (last_ < groups_.size() && belongTogether(groups_[last_], wanted))
        return groups_[last_];
    const auto found = std::find_if(groups_.begin(), groups_.end(), [&wanted](const SliceGroup& group) {
        return belongTogether(group, wanted);
    });
    if (found == groups_.end() && groups_.size() == MostGroups)
        throw VolumeRefusal{"its images have too many different geometries"};
    last_ = static_cast<std::size_t>(found - groups_.begin());
    return found == groups_.end() ? groups_.emplace_back(wanted) : *found;
}

std::vector<SliceGroup> SliceGroups::take() {
    const auto first = [](const SliceGroup& group) {
        std::pair<std::int64_t, std::uint32_t> least{group.slices.front().instanceNumber,
                                                     group.slices.front().frame};
        for (const Slice& slice : group.slices)
            least = std::min(least, {slice.instanceNumber, slice.frame});
        return least;
    };
    std::vector<std::pair<std::pair<std::int64_t, std::uint32_t>, std::size_t>> order;
    order.reserve(groups_.size());
    for (std::size_t i = 0; i < groups_.size(); ++i)
        order.emplace_back(first(groups_[i]), i);
    std::sort(order.begin(), order.end());
    std::vector<SliceGroup> sorted;
    sorted.reserve(groups_.size());
    for (const auto& [key, index] : order)
        sorted.push_back(std::move(groups_[index]));
    return sorted;
}

}  // namespace tessaly::tessalyd::volumes
