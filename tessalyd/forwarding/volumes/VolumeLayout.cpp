#include "tessalyd/forwarding/volumes/VolumeLayout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <tuple>

#include "tessalyd/forwarding/volumes/VolumeRefusal.h"

namespace tessaly::tessalyd::volumes {

namespace {

constexpr double Agreement = 0.01;   // of distances: so much of them, or so many mm
constexpr double OfPixel = 0.05;     // of a pixel: slices that are nearer are at one position
constexpr double LeastShear = 5e-4;  // mm aside for each mm along the normal; 0.03 degrees

/// Slices at one position, as indices.
struct Position {
    double along = 0;  ///< mm along the normal
    std::size_t begin = 0;
    std::size_t end = 0;
};

auto orderInTime(const Slice& slice) {
    return std::tuple{slice.temporalPosition, slice.acquisitionTime, slice.instanceNumber, slice.frame,
                      slice.object};
}

std::string inMillimetres(double a, double b) {
    char text[64];  // NOLINT(modernize-avoid-c-arrays)
    std::snprintf(text, sizeof text, "%.6g and %.6g mm", a, b);
    return text;
}

/// Sorts the slices, those of a position in the order of time.
std::vector<Position> positionsOf(SliceGroup& group, const Vector& normal) {
    std::sort(group.slices.begin(), group.slices.end(), [&normal](const Slice& a, const Slice& b) {
        return dot(a.position, normal) < dot(b.position, normal);
    });
    const double same = std::min(Agreement, OfPixel * std::min(group.spacing[0], group.spacing[1]));
    std::vector<Position> positions;
    for (std::size_t i = 0; i < group.slices.size(); ++i) {
        const double along = dot(group.slices[i].position, normal);
        if (positions.empty() || along - positions.back().along > same)
            positions.push_back({.along = along, .begin = i});
        positions.back().end = i + 1;
    }
    for (const Position& position : positions)
        std::sort(group.slices.begin() + static_cast<std::ptrdiff_t>(position.begin),
                  group.slices.begin() + static_cast<std::ptrdiff_t>(position.end),
                  [](const Slice& a, const Slice& b) { return orderInTime(a) < orderInTime(b); });
    return positions;
}

/// The step from each position to the next, which is the same everywhere.
Vector stepOf(const SliceGroup& group, const std::vector<Position>& positions, const Vector& normal) {
    if (positions.size() == 1)
        return normal * group.thickness;
    const auto placeOf = [&group](const Position& position) { return group.slices[position.begin].position; };
    const Vector step = (placeOf(positions.back()) - placeOf(positions.front())) *
                        (1.0 / static_cast<double>(positions.size() - 1));
    const double distance = dot(step, normal);
    const Vector aside = step - normal * distance;
    const double tolerance = std::max(Agreement, Agreement * distance);
    for (std::size_t i = 1; i < positions.size(); ++i) {
        const Vector one = placeOf(positions[i]) - placeOf(positions[i - 1]);
        const double along = dot(one, normal);
        if (std::abs(along - distance) > tolerance)
            throw VolumeRefusal{"the distances of its slices differ: " + inMillimetres(along, distance)};
        if (length(one - normal * along - aside) > tolerance)
            throw VolumeRefusal{"its slices do not lie one above the other"};
    }
    return step;
}

/// The slices of a position are at the same place in its plane too.
void requireOnePlace(const SliceGroup& group, const Position& position) {
    const Vector& first = group.slices[position.begin].position;
    const double tolerance = std::max(Agreement, OfPixel * std::min(group.spacing[0], group.spacing[1]));
    for (std::size_t i = position.begin; i < position.end; ++i)
        if (length(group.slices[i].position - first) > tolerance)
            throw VolumeRefusal{"it has slices side by side in one plane"};
}

double secondsApart(const SliceGroup& group, const Position& position) {
    const std::size_t count = position.end - position.begin;
    if (count < 2)
        return 0;
    const Slice& first = group.slices[position.begin];
    const Slice& last = group.slices[position.end - 1];
    if (first.acquisitionTime && last.acquisitionTime && *last.acquisitionTime > *first.acquisitionTime)
        return static_cast<double>(*last.acquisitionTime - *first.acquisitionTime) / 1e6 /
               static_cast<double>(count - 1);
    return group.repetitionTime / 1e3;
}

}  // namespace

bool VolumeLayout::hasOneFormat() const {
    return std::all_of(slices.begin(), slices.end(),
                       [this](const Slice& slice) { return slice.format == slices.front().format; });
}

bool VolumeLayout::hasOneScale() const {
    return std::all_of(slices.begin(), slices.end(), [this](const Slice& slice) {
        return slice.slope == slices.front().slope && slice.intercept == slices.front().intercept;
    });
}

VolumeLayout layoutOf(SliceGroup group, const decoder::Heartbeat& heartbeat) {
    const auto& [alongRow, alongColumn] = group.orientation;
    const Vector normal = unit(cross(alongRow, alongColumn));
    const auto positions = positionsOf(group, normal);
    heartbeat();
    const std::size_t times = positions.front().end - positions.front().begin;
    for (const Position& position : positions) {
        if (position.end - position.begin != times)
            throw VolumeRefusal{"its positions have different numbers of images: " + std::to_string(times) +
                                " and " + std::to_string(position.end - position.begin)};
        requireOnePlace(group, position);
    }
    if (positions.size() > LongestSide || times > LongestSide)
        throw VolumeRefusal{"it has more than 32767 positions or times"};
    const Vector step = stepOf(group, positions, normal);
    const double distance = dot(step, normal);
    VolumeLayout layout{
        .rows = group.rows,
        .columns = group.columns,
        .depth = positions.size(),
        .times = times,
        .origin = group.slices.front().position,
        .steps = {alongRow * group.spacing[1], alongColumn * group.spacing[0], step},
        .isSheared = length(step - normal * distance) > LeastShear * distance,
        .secondsApart = secondsApart(group, positions.front()),
    };
    layout.slices.reserve(group.slices.size());
    for (std::size_t time = 0; time < times; ++time) {
        heartbeat();
        for (const Position& position : positions)
            layout.slices.push_back(group.slices[position.begin + time]);
    }
    return layout;
}

}  // namespace tessaly::tessalyd::volumes
