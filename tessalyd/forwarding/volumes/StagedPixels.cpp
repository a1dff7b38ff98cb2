#include "tessalyd/forwarding/volumes/StagedPixels.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "tessalyd/forwarding/volumes/VolumeRefusal.h"

namespace tessaly::tessalyd::volumes {

static_assert(std::endian::native == std::endian::little, "elements are written as they are in memory");

namespace {

constexpr std::size_t BandBytes = std::size_t{1} << 20U;

/// Where a frame goes.
struct Target {
    std::uint32_t object = 0;
    std::uint32_t frame = 0;
    std::uint32_t volume = 0;
    std::uint32_t slice = 0;  ///< its number in the layout
};

std::vector<Target> targetsOf(const std::vector<StagedVolume>& volumes) {
    std::vector<Target> targets;
    for (std::size_t v = 0; v < volumes.size(); ++v) {
        const auto& slices = volumes[v].layout.slices;
        for (std::size_t s = 0; s < slices.size(); ++s)
            targets.push_back({.object = slices[s].object,
                               .frame = slices[s].frame,
                               .volume = static_cast<std::uint32_t>(v),
                               .slice = static_cast<std::uint32_t>(s)});
    }
    std::sort(targets.begin(), targets.end(), [](const Target& a, const Target& b) {
        return std::pair{a.object, a.frame} < std::pair{b.object, b.frame};
    });
    return targets;
}

template <class Element>
struct Range {
    Element least = std::numeric_limits<Element>::max();
    Element greatest = std::numeric_limits<Element>::lowest();
};

/// Takes the stored bits out of what was allocated for them; the rest may be anything.
template <class Unsigned, class Element>
void unpack(const char* bytes, std::span<Element> elements, const PixelFormat& format,
            Range<Element>& range) {
    const unsigned left = format.bitsAllocated - 1 - format.highBit;
    const unsigned right = format.bitsAllocated - format.bitsStored;
    const auto each = [&](auto type) {
        using Stored = decltype(type);
        Range<Element> found = range;
        for (std::size_t i = 0; i < elements.size(); ++i) {
            Unsigned raw = 0;
            std::memcpy(&raw, bytes + i * sizeof raw, sizeof raw);
            const auto value =
                static_cast<Element>(static_cast<Stored>(static_cast<Unsigned>(raw << left)) >> right);
            elements[i] = value;
            found.least = std::min(found.least, value);
            found.greatest = std::max(found.greatest, value);
        }
        range = found;
    };
    if (format.isSigned)
        each(std::make_signed_t<Unsigned>{});
    else
        each(Unsigned{});
}

/// Copies frames into one volume.
template <class Element>
void copyFrame(const Staging& staging, const images::PixelSource& source, StagedVolume& volume,
               std::size_t number, const images::ScratchFile& file) {
    const Slice& slice = volume.layout.slices[number];
    const std::size_t columns = volume.layout.columns;
    const std::size_t width = slice.format.bitsAllocated / 8;
    std::size_t from = frameOf(source, slice, volume.layout);
    std::uint64_t to = volume.at + number * volume.sliceBytes();
    const std::size_t band = std::max<std::size_t>(1, BandBytes / (columns * sizeof(Element)));
    std::vector<char> bytes(std::min(band, volume.layout.rows) * columns * width);
    std::vector<Element> elements(bytes.size() / width);
    Range<Element> range;
    for (std::size_t row = 0; row < volume.layout.rows; row += band) {
        staging.heartbeat();
        const std::size_t count = std::min(band, volume.layout.rows - row) * columns;
        const std::span part = std::span{elements}.first(count);
        source.read(from, std::span{bytes}.first(count * width));
        if (width == 1)
            unpack<std::uint8_t>(bytes.data(), part, slice.format, range);
        else if (width == 2)
            unpack<std::uint16_t>(bytes.data(), part, slice.format, range);
        else
            unpack<std::uint32_t>(bytes.data(), part, slice.format, range);
        file.write(to, {reinterpret_cast<const char*>(elements.data()), count * sizeof(Element)});
        from += count * width;
        to += count * sizeof(Element);
    }
    volume.least = std::min<std::int64_t>(volume.least, range.least);
    volume.greatest = std::max<std::int64_t>(volume.greatest, range.greatest);
}

void copy(const Staging& staging, const images::PixelSource& source, StagedVolume& volume, std::size_t number,
          const images::ScratchFile& file) {
    const auto as = [&](auto element) {
        copyFrame<decltype(element)>(staging, source, volume, number, file);
    };
    if (volume.type.size == 1)
        volume.type.isSigned ? as(std::int8_t{}) : as(std::uint8_t{});
    else if (volume.type.size == 2)
        volume.type.isSigned ? as(std::int16_t{}) : as(std::uint16_t{});
    else
        volume.type.isSigned ? as(std::int32_t{}) : as(std::uint32_t{});
}

ElementType typeOf(const VolumeLayout& layout) {
    const PixelFormat& first = layout.slices.front().format;
    if (layout.hasOneFormat())
        return {.size = first.bitsAllocated / 8, .isSigned = first.isSigned};
    for (const Slice& slice : layout.slices)
        if (!slice.format.isSigned && slice.format.bitsStored == 32)
            throw VolumeRefusal{"its images have pixels of too different kinds"};
    return {.size = 4, .isSigned = true};
}

}  // namespace

std::vector<StagedVolume> planStaging(std::vector<VolumeLayout> layouts, std::uint64_t mostBytes) {
    std::vector<StagedVolume> volumes;
    std::uint64_t at = 0;
    for (VolumeLayout& layout : layouts) {
        const ElementType type = typeOf(layout);
        StagedVolume& volume =
            volumes.emplace_back(StagedVolume{.layout = std::move(layout), .type = type, .at = at});
        // At most 2^30 pixels, 4 bytes and 100,000 slices: 64 bits are enough.
        at += volume.sliceBytes() * volume.layout.slices.size();
        if (at > mostBytes)
            throw VolumeRefusal{"its volumes would be larger than " + std::to_string(mostBytes >> 20U) +
                                " MB"};
    }
    return volumes;
}

void stage(const Staging& staging, std::vector<StagedVolume>& volumes, const images::ScratchFile& target) {
    const auto targets = targetsOf(volumes);
    std::vector<std::size_t> objects;
    for (std::size_t i = 0; i < targets.size(); ++i)
        if (i == 0 || targets[i].object != targets[i - 1].object)
            objects.push_back(targets[i].object);
    PixelSources sources{std::move(objects), staging.open,     staging.folder,
                         staging.decoders,   staging.interest, staging.heartbeat};
    for (std::size_t i = 0; i < targets.size();) {
        const std::uint32_t object = targets[i].object;
        const auto source = sources.next();
        for (; i < targets.size() && targets[i].object == object; ++i)
            copy(staging, *source, volumes[targets[i].volume], targets[i].slice, target);
    }
}

}  // namespace tessaly::tessalyd::volumes
