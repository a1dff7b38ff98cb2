#include <algorithm>
#include <cmath>
#include <numbers>

#include "tessalyd/forwarding/images/OutputFile.h"
#include "tessalyd/forwarding/volumes/HeaderBytes.h"
#include "tessalyd/forwarding/volumes/VolumeWriter.h"

namespace tessaly::tessalyd::volumes {

namespace {

constexpr std::int32_t Extents = 16384;  // what the format asks for

/// What the volume's values are once slope and intercept are applied.
struct Values {
    bool areShorts = true;
    double least = 0;
    double greatest = 0;
};

Values valuesOf(const StagedVolume& volume) {
    constexpr double Least = std::numeric_limits<std::int16_t>::min();
    constexpr double Greatest = std::numeric_limits<std::int16_t>::max();
    Values values{.least = std::numeric_limits<double>::max(),
                  .greatest = std::numeric_limits<double>::lowest()};
    for (const Slice& slice : volume.layout.slices) {
        const double one = static_cast<double>(volume.least) * slice.slope + slice.intercept;
        const double other = static_cast<double>(volume.greatest) * slice.slope + slice.intercept;
        values.least = std::min({values.least, one, other});
        values.greatest = std::max({values.greatest, one, other});
        values.areShorts = values.areShorts && slice.slope == std::trunc(slice.slope) &&
                           slice.intercept == std::trunc(slice.intercept);
    }
    values.areShorts = values.areShorts && values.least >= Least && values.greatest <= Greatest;
    return values;
}

}  // namespace

AnatomicalAxes anatomicalAxes(const VolumeLayout& layout) {
    constexpr std::array<Vector, 3> Anatomy{Vector{.x = 1}, Vector{.y = -1}, Vector{.z = 1}};
    std::array<std::size_t, 3> order{0, 1, 2};
    std::array<std::size_t, 3> best = order;
    const auto cosine = [&](std::size_t axis, std::size_t from) {
        return dot(unit(layout.steps[from]), Anatomy[axis]);
    };
    double most = -1;
    do {
        double sum = 0;
        for (std::size_t a = 0; a < order.size(); ++a)
            sum += std::abs(cosine(a, order[a]));
        if (sum > most) {
            most = sum;
            best = order;
        }
    } while (std::next_permutation(order.begin(), order.end()));
    AnatomicalAxes result;
    for (std::size_t a = 0; a < best.size(); ++a) {
        const double found = cosine(a, best[a]);
        result.axes[a] = {.from = best[a], .isReversed = found < 0};
        result.degrees =
            std::max(result.degrees, std::acos(std::min(1.0, std::abs(found))) * 180 / std::numbers::pi);
    }
    return result;
}

void writeAnalyze(const std::filesystem::path& header, const std::filesystem::path& image,
                  const StagedVolume& volume, const images::ScratchFile& file,
                  const decoder::Heartbeat& heartbeat) {
    const Axes axes = anatomicalAxes(volume.layout).axes;
    const Geometry geometry = geometryOf(volume.layout, axes);
    const Values values = valuesOf(volume);
    HeaderBytes bytes;
    bytes.put(32, Extents);
    bytes.describe(geometry.size, volume.layout.times, values.areShorts ? TypeInt16 : TypeFloat32,
                   values.areShorts ? 2 : 4);
    bytes.measure({length(geometry.steps[0]), length(geometry.steps[1]), length(geometry.steps[2])},
                  volume.layout.secondsApart);
    bytes.put(56, 'm');
    bytes.put(57, 'm');
    constexpr double Whole = 1e9;  // a double outside of it would be none of these numbers' 32 bits
    bytes.put(140, static_cast<std::int32_t>(std::clamp(values.greatest, -Whole, Whole)));
    bytes.put(144, static_cast<std::int32_t>(std::clamp(values.least, -Whole, Whole)));
    {
        images::OutputFile target{image};
        writeVoxels(
            volume, file, axes, values.areShorts ? VoxelType::ScaledInt16 : VoxelType::ScaledFloat,
            [&target](std::span<const char> part) { target.write(part); }, heartbeat);
        target.close();
    }
    images::OutputFile target{header};
    target.write(bytes.bytes());
    target.close();
}

}  // namespace tessaly::tessalyd::volumes
