#include "tessalyd/forwarding/volumes/Voxels.h"

#include <algorithm>
#include <vector>

namespace tessaly::tessalyd::volumes {

namespace {

constexpr std::size_t BatchBytes = std::size_t{8} << 20U;
constexpr std::size_t BandBytes = std::size_t{1} << 20U;
constexpr std::size_t PartBytes = std::size_t{256}
                                  << 10U;  // given out between two questions whether to go on

std::array<std::size_t, 3> sizeOf(const VolumeLayout& layout) {
    return {layout.columns, layout.rows, layout.depth};
}

/// From one index to another, which is behind the last.
struct Span {
    std::size_t begin = 0;
    std::size_t end = 0;
    [[nodiscard]] std::size_t size() const noexcept { return end - begin; }
};

/// Reads the volume by rows and puts each voxel to its place among those that are written next.
template <class Stored, class Written, bool IsScaled>
class Gathering {
  public:
    Gathering(const StagedVolume& volume, const images::ScratchFile& file, const Axes& axes, const Sink& sink,
              const decoder::Heartbeat& heartbeat)
        : volume_(volume),
          file_(file),
          axes_(axes),
          sink_(sink),
          heartbeat_(heartbeat),
          source_(sizeOf(volume.layout)),
          size_{source_[axes[0].from], source_[axes[1].from], source_[axes[2].from]} {}

    void run() {
        const std::size_t most = BatchBytes / sizeof(Written);
        const std::size_t rows = std::clamp<std::size_t>(most / size_[0], 1, size_[1]);
        const std::size_t planes =
            rows < size_[1] ? 1 : std::clamp<std::size_t>(most / (size_[0] * size_[1]), 1, size_[2]);
        for (std::size_t time = 0; time < volume_.layout.times; ++time)
            for (std::size_t z = 0; z < size_[2]; z += planes)
                for (std::size_t y = 0; y < size_[1]; y += rows)
                    batch(time, {y, std::min(y + rows, size_[1])}, {z, std::min(z + planes, size_[2])});
    }

  private:
    /// Gives out what lies between these indices of the second and the third axis.
    void batch(std::size_t time, Span y, Span z) {
        const std::array<Span, 3> spans{Span{0, size_[0]}, y, z};
        const std::array<std::size_t, 3> steps{1, size_[0], size_[0] * y.size()};
        std::array<Span, 3> wanted;  // by the volume's axes
        start_ = 0;
        for (std::size_t a = 0; a < axes_.size(); ++a) {
            const std::size_t from = axes_[a].from;
            const bool isReversed = axes_[a].isReversed;
            wanted[from] =
                isReversed ? Span{source_[from] - spans[a].end, source_[from] - spans[a].begin} : spans[a];
            const auto step = static_cast<std::ptrdiff_t>(steps[a]);
            steps_[from] = isReversed ? -step : step;
            start_ += isReversed ? step * static_cast<std::ptrdiff_t>(spans[a].size() - 1) : 0;
        }
        voxels_.resize(size_[0] * y.size() * z.size());
        for (std::size_t slice = wanted[2].begin; slice < wanted[2].end; ++slice)
            readSlice(time, slice, wanted);
        for (std::span<const char> left{reinterpret_cast<const char*>(voxels_.data()),
                                        voxels_.size() * sizeof(Written)};
             !left.empty();) {
            const auto part = left.first(std::min(left.size(), PartBytes));
            heartbeat_();
            sink_(part);
            left = left.subspan(part.size());
        }
    }

    void readSlice(std::size_t time, std::size_t slice, const std::array<Span, 3>& wanted) {
        const auto& [columns, rows, slices] = wanted;
        const std::size_t number = time * source_[2] + slice;
        const bool isWhole = columns.size() == source_[0];
        const std::size_t band =
            isWhole ? std::max<std::size_t>(1, BandBytes / (source_[0] * sizeof(Stored))) : std::size_t{1};
        const Slice& described = volume_.layout.slices[number];
        for (std::size_t row = rows.begin; row < rows.end; row += band) {
            heartbeat_();
            const std::size_t count = std::min(band, rows.end - row);
            read_.resize(count * columns.size());
            file_.read(volume_.at + number * volume_.sliceBytes() +
                           (row * source_[0] + columns.begin) * sizeof(Stored),
                       {reinterpret_cast<char*>(read_.data()), read_.size() * sizeof(Stored)});
            for (std::size_t i = 0; i < count; ++i)
                put(described, {read_.data() + i * columns.size(), columns.size()},
                    start_ + static_cast<std::ptrdiff_t>(row + i - rows.begin) * steps_[1] +
                        static_cast<std::ptrdiff_t>(slice - slices.begin) * steps_[2]);
        }
    }

    void put(const Slice& slice, std::span<const Stored> row, std::ptrdiff_t to) {
        const std::ptrdiff_t step = steps_[0];
        Written* const target = voxels_.data() + to;
        if constexpr (!IsScaled) {
            if (step == 1) {
                std::copy(row.begin(), row.end(), target);
                return;
            }
        }
        for (std::size_t i = 0; i < row.size(); ++i)
            target[static_cast<std::ptrdiff_t>(i) * step] = scaled(slice, row[i]);
    }

    static Written scaled(const Slice& slice, Stored value) {
        if constexpr (IsScaled)
            return static_cast<Written>(static_cast<double>(value) * slice.slope + slice.intercept);
        else
            return value;
    }

    const StagedVolume& volume_;
    const images::ScratchFile& file_;
    const Axes& axes_;
    const Sink& sink_;
    const decoder::Heartbeat& heartbeat_;
    const std::array<std::size_t, 3> source_;
    const std::array<std::size_t, 3> size_;
    std::array<std::ptrdiff_t, 3>
        steps_{};  // by the volume's axes: from a voxel to the next among those written
    std::ptrdiff_t start_ = 0;
    std::vector<Stored> read_;
    std::vector<Written> voxels_;
};

}  // namespace

Geometry geometryOf(const VolumeLayout& layout, const Axes& axes) {
    Geometry geometry{.origin = layout.origin};
    for (std::size_t a = 0; a < axes.size(); ++a) {
        const Vector step = layout.steps[axes[a].from];
        const std::size_t size = sizeOf(layout)[axes[a].from];
        geometry.size[a] = size;
        geometry.steps[a] = axes[a].isReversed ? step * -1 : step;
        if (axes[a].isReversed)
            geometry.origin = geometry.origin + step * static_cast<double>(size - 1);
    }
    return geometry;
}

void writeVoxels(const StagedVolume& volume, const images::ScratchFile& file, const Axes& axes,
                 VoxelType type, const Sink& sink, const decoder::Heartbeat& heartbeat) {
    const auto as = [&](auto element) {
        using Stored = decltype(element);
        if (type == VoxelType::Stored)
            Gathering<Stored, Stored, false>{volume, file, axes, sink, heartbeat}.run();
        else if (type == VoxelType::ScaledFloat)
            Gathering<Stored, float, true>{volume, file, axes, sink, heartbeat}.run();
        else
            Gathering<Stored, std::int16_t, true>{volume, file, axes, sink, heartbeat}.run();
    };
    if (volume.type.size == 1)
        volume.type.isSigned ? as(std::int8_t{}) : as(std::uint8_t{});
    else if (volume.type.size == 2)
        volume.type.isSigned ? as(std::int16_t{}) : as(std::uint16_t{});
    else
        volume.type.isSigned ? as(std::int32_t{}) : as(std::uint32_t{});
}

}  // namespace tessaly::tessalyd::volumes
