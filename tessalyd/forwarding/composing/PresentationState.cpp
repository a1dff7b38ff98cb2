#include "tessalyd/forwarding/composing/PresentationState.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>

#include "base/Number.h"
#include "tessalyd/forwarding/images/HeaderValues.h"

namespace tessaly::tessalyd::composing {

namespace {

/// Whether an item of Referenced Image Sequence means the frame.
bool means(const Header& reference, const std::string& uid, std::size_t frame) {
    if (reference.text(DCM_ReferencedSOPInstanceUID) != uid)
        return false;
    const auto frames = reference.text(DCM_ReferencedFrameNumber);
    if (frames.empty())
        return true;
    const auto numbers = images::valuesOf(frames);
    return std::any_of(numbers.begin(), numbers.end(), [frame](std::string_view number) {
        return base::wholeNumber(number) == static_cast<long long>(frame) + 1;
    });
}

/// The part of an image between two corners, in whatever order they come; what is not of the image is left
/// out. Returns nullopt if there is no such part.
std::optional<Area> areaBetween(const std::vector<std::int32_t>& one, const std::vector<std::int32_t>& other,
                                const decoder::ImageDescription& pixels) {
    if (one.size() != 2 || other.size() != 2 || pixels.rows == 0 || pixels.columns == 0)
        return std::nullopt;
    const auto span = [](std::int64_t a, std::int64_t b, std::int64_t size) {
        const auto [first, last] = std::minmax(a, b);
        return std::pair{std::max<std::int64_t>(first, 1), std::min(last, size)};
    };
    const auto [left, right] = span(one[0], other[0], pixels.columns);
    const auto [top, bottom] = span(one[1], other[1], pixels.rows);
    if (left > right || top > bottom)
        return std::nullopt;
    return Area{.left = static_cast<std::uint32_t>(left - 1),
                .top = static_cast<std::uint32_t>(top - 1),
                .right = static_cast<std::uint32_t>(right - 1),
                .bottom = static_cast<std::uint32_t>(bottom - 1)};
}

}  // namespace

bool isPresentationState(const Header& header) {
    return header.text(DCM_SOPClassUID) == UID_GrayscaleSoftcopyPresentationStateStorage;
}

bool PresentationState::applies(const Header& item, const std::string& uid, std::size_t frame) const {
    const auto& references = item.items(DCM_ReferencedImageSequence);
    return references.empty() ||
           std::any_of(references.begin(), references.end(),
                       [&](const Header& reference) { return means(reference, uid, frame); });
}

bool PresentationState::refersTo(const std::string& sopInstanceUid) const {
    for (const Header& series : header_.attributes.items(DCM_ReferencedSeriesSequence))
        for (const Header& reference : series.items(DCM_ReferencedImageSequence))
            if (reference.text(DCM_ReferencedSOPInstanceUID) == sopInstanceUid)
                return true;
    return false;
}

/// The first item that is about the frame; null if there is none.
const Header* PresentationState::itemFor(const DcmTagKey& sequence, const std::string& uid,
                                         std::size_t frame) const {
    for (const Header& item : header_.attributes.items(sequence))
        if (applies(item, uid, frame))
            return &item;
    return nullptr;
}

void PresentationState::apply(const std::string& sopInstanceUid, std::size_t frame,
                              const decoder::ImageDescription& pixels, Look& look) const {
    bool isMeant = false;
    for (const Header& series : header_.attributes.items(DCM_ReferencedSeriesSequence))
        for (const Header& reference : series.items(DCM_ReferencedImageSequence))
            isMeant |= means(reference, sopInstanceUid, frame);
    if (!isMeant)
        return;
    const Header& state = header_.attributes;
    const bool isSigned = pixels.pixelRepresentation == 1;
    // A state says all of it: what it leaves out is identity, and not what the image says.
    look.modality = modalityOf(state, isSigned).value_or(Modality{});
    const bool mayBeNegative = isSigned || (!look.modality.table && look.modality.intercept < 0);
    look.voi = {};
    if (const Header* const voi = itemFor(DCM_SoftcopyVOILUTSequence, sopInstanceUid, frame))
        look.voi = voiOf(*voi, mayBeNegative);
    look.presentation = tableOf(state.item(DCM_PresentationLUTSequence), false);
    look.isInverse = !look.presentation && state.text(DCM_PresentationLUTShape) == "INVERSE";
    look.shutter = shutterOf(state);
    look.rotation = state.word(DCM_ImageRotation).value_or(0) % 360 / 90 * 90;
    look.isFlipped = state.text(DCM_ImageHorizontalFlip) == "Y";
    if (const Header* const area = itemFor(DCM_DisplayedAreaSelectionSequence, sopInstanceUid, frame))
        look.area = areaBetween(area->longs(DCM_DisplayedAreaTopLeftHandCorner),
                                area->longs(DCM_DisplayedAreaBottomRightHandCorner), pixels);
}

std::string PresentationState::leftOut() const {
    std::string left;
    const auto add = [&left](bool has, const char* what) {
        if (has)
            left.append(left.empty() ? "" : ", ").append(what);
    };
    add(!header_.attributes.items(DCM_GraphicAnnotationSequence).empty(), "graphic annotations");
    add(header_.hasOverlays, "overlays");
    add(hasPolygonalShutter(header_.attributes), "a polygonal shutter");
    return left;
}

}  // namespace tessaly::tessalyd::composing
