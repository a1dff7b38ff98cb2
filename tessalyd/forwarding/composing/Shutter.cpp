#include "tessalyd/forwarding/composing/Shutter.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <cmath>
#include <string_view>

#include "tessalyd/forwarding/images/HeaderValues.h"

namespace tessaly::tessalyd::composing {

namespace {

bool hasShape(const Header& header, std::string_view shape) {
    const auto shapes = images::valuesOf(header.text(DCM_ShutterShape));
    return std::find(shapes.begin(), shapes.end(), shape) != shapes.end();
}

/// No row or column of an image is as far away as what is left out.
std::optional<std::int64_t> place(const Header& header, const DcmTagKey& tag, std::size_t index = 0) {
    constexpr double Farthest = 1e6;
    const auto number = header.decimal(tag, index);
    return number && std::abs(*number) <= Farthest ? std::optional{std::llround(*number)} : std::nullopt;
}

}  // namespace

bool Shutter::hides(std::int64_t row, std::int64_t column) const noexcept {
    if (rectangle && (column < rectangle->left || column > rectangle->right || row < rectangle->top ||
                      row > rectangle->bottom))
        return true;
    if (!circle)
        return false;
    const std::int64_t down = row - circle->row;
    const std::int64_t right = column - circle->column;
    return down * down + right * right > circle->radius * circle->radius;
}

std::optional<Shutter> shutterOf(const Header& header) {
    Shutter shutter{
        .rectangle = {}, .circle = {}, .value = header.word(DCM_ShutterPresentationValue).value_or(0)};
    if (hasShape(header, "RECTANGULAR")) {
        const auto left = place(header, DCM_ShutterLeftVerticalEdge);
        const auto right = place(header, DCM_ShutterRightVerticalEdge);
        const auto top = place(header, DCM_ShutterUpperHorizontalEdge);
        const auto bottom = place(header, DCM_ShutterLowerHorizontalEdge);
        if (left && right && top && bottom)
            shutter.rectangle = {.left = *left, .right = *right, .top = *top, .bottom = *bottom};
    }
    if (hasShape(header, "CIRCULAR")) {
        const auto row = place(header, DCM_CenterOfCircularShutter, 0);
        const auto column = place(header, DCM_CenterOfCircularShutter, 1);
        const auto radius = place(header, DCM_RadiusOfCircularShutter);
        if (row && column && radius && *radius >= 0)
            shutter.circle = {.row = *row, .column = *column, .radius = *radius};
    }
    return shutter.rectangle || shutter.circle ? std::optional{shutter} : std::nullopt;
}

bool hasPolygonalShutter(const Header& header) {
    return hasShape(header, "POLYGONAL");
}

}  // namespace tessaly::tessalyd::composing
