#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "decoder/ObjectLayout.h"
#include "tessalyd/forwarding/composing/Header.h"
#include "tessalyd/forwarding/composing/Shutter.h"

namespace tessaly::tessalyd::composing {

/// A lookup table of PS3.3, C.11.1 and C.11.2.
struct Table {
    std::vector<std::uint16_t> values;
    std::int64_t first = 0;  ///< the value that has the first entry
    unsigned bits = 16;      ///< of an entry

    /// What is before the first entry has that, what is behind the last has the last.
    [[nodiscard]] double of(double value) const;
    [[nodiscard]] double greatest() const noexcept { return static_cast<double>((1U << bits) - 1); }
};

enum class WindowFunction : std::uint8_t { Linear, LinearExact, Sigmoid };

struct Window {
    double centre = 0;
    double width = 1;
    WindowFunction function = WindowFunction::Linear;

    /// From 0, black, to 1, by PS3.3, C.11.2.1.2 and C.11.2.1.3.
    [[nodiscard]] double of(double value) const;
};

/// From stored values to what a modality means by them.
struct Modality {
    std::optional<Table> table;
    double slope = 1;
    double intercept = 0;

    [[nodiscard]] double of(double stored) const {
        return table ? table->of(stored) : stored * slope + intercept;
    }
};

/// From there to what is to be seen. With neither, the range of a frame's own values is.
struct ValuesOfInterest {
    std::optional<Table> table;
    std::optional<Window> window;
};

/// A part of an image, in pixels from 0 on; the last ones are in it.
struct Area {
    std::uint32_t left = 0;
    std::uint32_t top = 0;
    std::uint32_t right = 0;
    std::uint32_t bottom = 0;
    bool operator==(const Area&) const = default;
};

/// How a frame is to look.
struct Look {
    Modality modality;
    ValuesOfInterest voi;
    std::optional<Table> presentation;  ///< of 0 to its last entry, for black to white
    bool isInverse = false;             ///< black is white
    /// Stored values that are no part of the picture, the least and the greatest.
    std::optional<std::pair<std::int64_t, std::int64_t>> padding;
    std::optional<Shutter> shutter;
    std::optional<Area> area;  ///< nothing: all
    unsigned rotation = 0;     ///< clockwise, in degrees: 0, 90, 180, 270
    bool isFlipped = false;    ///< left and right, after the rotation

    /// From 0, black, to 1. `range` is that of the frame's values, which counts without a VOI.
    [[nodiscard]] double of(double stored, const std::pair<double, double>& range) const;
    [[nodiscard]] bool needsRange() const noexcept { return !voi.table && !voi.window; }
};

/// What an image says of one of its frames, counted from 0.
[[nodiscard]] Look lookOf(const Header& image, const decoder::ImageDescription& pixels, std::size_t frame);

// What images and presentation states say in the same words. `header` has the attributes, or its first item
// of the sequences.

/// Returns nullopt if it says nothing.
[[nodiscard]] std::optional<Modality> modalityOf(const Header& header, bool isSigned);
[[nodiscard]] ValuesOfInterest voiOf(const Header& header, bool isSigned);
/// The table in an item of a LUT sequence, or one of a palette's three; `item` may be null. Returns nullopt
/// if it cannot be used.
[[nodiscard]] std::optional<Table> tableOf(const Header* item, bool isSigned,
                                           const DcmTagKey& descriptor = DCM_LUTDescriptor,
                                           const DcmTagKey& data = DCM_LUTData);

}  // namespace tessaly::tessalyd::composing
