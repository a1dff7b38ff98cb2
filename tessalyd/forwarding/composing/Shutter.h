#pragma once

#include <cstdint>
#include <optional>

#include "tessalyd/forwarding/composing/Header.h"

namespace tessaly::tessalyd::composing {

/// What of an image is hidden (PS3.3, C.7.6.11 and C.11.12): all that is outside of one of its shapes. Rows
/// and columns are counted from 1.
struct Shutter {
    struct Rectangle {
        std::int64_t left = 0;
        std::int64_t right = 0;
        std::int64_t top = 0;
        std::int64_t bottom = 0;
    };
    struct Circle {
        std::int64_t row = 0;
        std::int64_t column = 0;
        std::int64_t radius = 0;
    };
    std::optional<Rectangle> rectangle;
    std::optional<Circle> circle;
    std::uint16_t value = 0;  ///< of hidden pixels, from 0, black, to 65,535

    [[nodiscard]] bool hides(std::int64_t row, std::int64_t column) const noexcept;
};

/// Returns nullopt if the header has none that is known: a polygon is not.
[[nodiscard]] std::optional<Shutter> shutterOf(const Header& header);
[[nodiscard]] bool hasPolygonalShutter(const Header& header);

}  // namespace tessaly::tessalyd::composing
