#include "tessalyd/forwarding/composing/Header.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "base/Text.h"
#include "tessalyd/forwarding/images/HeaderValues.h"
#include "tessalyd/forwarding/images/HeaderWalk.h"
#include "tessalyd/forwarding/images/ImageRefusal.h"

namespace tessaly::tessalyd::composing {

static_assert(std::endian::native == std::endian::little, "numbers are read as they are in memory");

namespace {

using dicom::ElementHead;
using images::ImageRefusal;

constexpr std::size_t LongestValue = std::size_t{128} << 10U;  // a table of 65,536 entries
constexpr std::size_t MostBytes = std::size_t{4} << 20U;
constexpr std::size_t MostElements = 200'000;  // some for each frame

bool isWanted(const DcmTagKey& tag) {
    static const std::vector<DcmTagKey> Wanted = [] {
        std::vector<DcmTagKey> tags{
            DCM_SpecificCharacterSet, DCM_SOPClassUID, DCM_SOPInstanceUID, DCM_StudyDate,
            DCM_StudyDescription, DCM_PatientName, DCM_PatientID, DCM_StudyInstanceUID, DCM_SeriesInstanceUID,
            DCM_SeriesNumber, DCM_InstanceNumber,
            // The pixels
            DCM_SamplesPerPixel, DCM_PhotometricInterpretation, DCM_PlanarConfiguration, DCM_NumberOfFrames,
            DCM_Rows, DCM_Columns, DCM_PixelAspectRatio, DCM_PixelSpacing, DCM_ImagerPixelSpacing,
            DCM_PixelMeasuresSequence, DCM_PixelRepresentation, DCM_PixelPaddingValue,
            DCM_PixelPaddingRangeLimit, DCM_RedPaletteColorLookupTableDescriptor,
            DCM_GreenPaletteColorLookupTableDescriptor, DCM_BluePaletteColorLookupTableDescriptor,
            DCM_RedPaletteColorLookupTableData, DCM_GreenPaletteColorLookupTableData,
            DCM_BluePaletteColorLookupTableData, DCM_SegmentedRedPaletteColorLookupTableData,
            // Their values
            DCM_WindowCenter, DCM_WindowWidth, DCM_VOILUTFunction, DCM_RescaleIntercept, DCM_RescaleSlope,
            DCM_ModalityLUTSequence, DCM_VOILUTSequence, DCM_LUTDescriptor, DCM_LUTData,
            DCM_SharedFunctionalGroupsSequence, DCM_PerFrameFunctionalGroupsSequence,
            DCM_PixelValueTransformationSequence, DCM_FrameVOILUTSequence,
            // Presentation states
            DCM_ReferencedSeriesSequence, DCM_ReferencedImageSequence, DCM_ReferencedSOPInstanceUID,
            DCM_ReferencedFrameNumber, DCM_SoftcopyVOILUTSequence, DCM_PresentationLUTSequence,
            DCM_PresentationLUTShape, DCM_ImageRotation, DCM_ImageHorizontalFlip,
            DCM_DisplayedAreaSelectionSequence, DCM_DisplayedAreaTopLeftHandCorner,
            DCM_DisplayedAreaBottomRightHandCorner, DCM_GraphicAnnotationSequence, DCM_ShutterShape,
            DCM_ShutterLeftVerticalEdge, DCM_ShutterRightVerticalEdge, DCM_ShutterUpperHorizontalEdge,
            DCM_ShutterLowerHorizontalEdge, DCM_CenterOfCircularShutter, DCM_RadiusOfCircularShutter,
            DCM_ShutterPresentationValue};
        std::sort(tags.begin(), tags.end());
        return tags;
    }();
    return std::binary_search(Wanted.begin(), Wanted.end(), tag);
}

std::size_t numberSize(DcmEVR vr) {
    switch (vr) {
        case EVR_US:
        case EVR_SS:
        case EVR_OW:
        case EVR_xs:
        case EVR_lt:
            return 2;
        case EVR_UL:
        case EVR_SL:
        case EVR_FL:
            return 4;
        case EVR_FD:
            return 8;
        default:
            return 1;
    }
}

template <class Number>
std::vector<Number> numbersOf(std::string_view bytes) {
    std::vector<Number> numbers(bytes.size() / sizeof(Number));
    if (!numbers.empty())
        std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(Number));
    return numbers;
}

}  // namespace

/// Collects the wanted attributes into a tree.
class HeaderCollector final : public images::HeaderVisitor {
  public:
    [[nodiscard]] bool element(const ElementHead& head) override {
        commit();
        if (head.depth == 0 && head.tag.getGroup() >= DCM_PixelData.getGroup()) {
            header_.hasPixels = head.tag == DCM_PixelData;
            return false;
        }
        constexpr Uint16 FirstOverlay = 0x6000;
        header_.hasOverlays |= head.depth == 0 && (head.tag.getGroup() & 0xff00U) == FirstOverlay;
        const std::size_t level = head.depth / 2;  // sequences around it
        const bool isItem = head.tag == DCM_Item;
        // Items are in sequences, and elements in items: what is elsewhere is passed over.
        if (level >= Deepest || isItem != (head.depth % 2 == 1) || head.tag == DCM_ItemDelimitationItem ||
            head.tag == DCM_SequenceDelimitationItem)
            return true;
        // What was open further inside is closed, and what the tree moves is not pointed to any more.
        for (std::size_t inner = level + 1; inner < Deepest; ++inner) {
            owners_[inner] = nullptr;
            sequences_[inner] = nullptr;
        }
        if (isItem)
            beginItem(level);
        else if (owners_[level] != nullptr && isWanted(head.tag))
            beginWanted(*owners_[level], level, head);
        else
            sequences_[level] = nullptr;
        return true;
    }

    void value(std::span<const char> piece) override {
        if (current_ == nullptr)
            return;
        bytes_ += piece.size();
        if (bytes_ > MostBytes)
            throw ImageRefusal{"its header is too long"};
        current_->bytes.append(piece.data(), piece.size());
    }

    [[nodiscard]] bool wantsValue() const noexcept override { return current_ != nullptr; }

    [[nodiscard]] ObjectHeader finish() {
        commit();
        header_.memory = bytes_ + elements_ * sizeof(Header);
        return std::move(header_);
    }

  private:
    static constexpr std::size_t Deepest = 6;

    void count() {
        if (++elements_ > MostElements)
            throw ImageRefusal{"its header has too many elements"};
    }

    void beginItem(std::size_t level) {
        if (level + 1 >= Deepest || sequences_[level] == nullptr)
            return;
        count();
        owners_[level + 1] = &sequences_[level]->emplace_back();
    }

    void beginWanted(Header& owner, std::size_t level, const ElementHead& head) {
        sequences_[level] = nullptr;
        const DcmEVR vr = dicom::representation(head);
        if (vr == EVR_SQ) {
            count();
            // Of several with one tag the first counts.
            if (owner.items(head.tag).empty())
                sequences_[level] = &owner.sequences_.emplace_back(head.tag, std::vector<Header>{}).second;
            return;
        }
        if (head.length > LongestValue || owner.has(head.tag))
            return;
        count();
        current_ = &owner.values_.emplace_back(head.tag, Header::Value{.vr = vr}).second;
        swaps_ = !head.littleEndian && head.vr != EVR_UN;
    }

    /// The value that has come is whole.
    void commit() {
        if (current_ == nullptr)
            return;
        if (swaps_)
            for (std::size_t size = numberSize(current_->vr), at = 0; at + size <= current_->bytes.size();
                 at += size)
                std::reverse(current_->bytes.begin() + static_cast<std::ptrdiff_t>(at),
                             current_->bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
        current_ = nullptr;
    }

    ObjectHeader header_;
    std::array<Header*, Deepest> owners_{&header_.attributes};  // of what comes at each level; may be null
    std::array<std::vector<Header>*, Deepest> sequences_{};     // that are open and wanted
    Header::Value* current_ = nullptr;                          // whose bytes come now
    bool swaps_ = false;
    std::size_t elements_ = 0;
    std::size_t bytes_ = 0;
};

const Header::Value* Header::find(const DcmTagKey& tag) const {
    const auto found =
        std::find_if(values_.begin(), values_.end(), [&](const auto& entry) { return entry.first == tag; });
    return found == values_.end() ? nullptr : &found->second;
}

std::string_view Header::bytes(const DcmTagKey& tag) const {
    const Value* const value = find(tag);
    return value == nullptr ? std::string_view{} : std::string_view{value->bytes};
}

DcmEVR Header::representation(const DcmTagKey& tag) const {
    const Value* const value = find(tag);
    return value == nullptr ? EVR_UNKNOWN : value->vr;
}

std::string_view Header::text(const DcmTagKey& tag) const {
    constexpr std::string_view Padding{" \0", 2};
    return base::trimmed(bytes(tag), Padding);
}

std::optional<double> Header::decimal(const DcmTagKey& tag, std::size_t index) const {
    const Value* const value = find(tag);
    if (value == nullptr)
        return std::nullopt;
    if (value->vr == EVR_FD) {
        const std::string_view all{value->bytes};
        return all.size() < (index + 1) * sizeof(double)
                   ? std::nullopt
                   : images::binaryDouble(all.substr(index * sizeof(double)), true);
    }
    const auto values = images::valuesOf(value->bytes);
    if (index >= values.size())
        return std::nullopt;
    const auto number = images::decimals(values[index], 1);
    return number ? std::optional{number->front()} : std::nullopt;
}

std::optional<std::int64_t> Header::integer(const DcmTagKey& tag) const {
    return images::integer(bytes(tag));
}

std::vector<std::uint16_t> Header::words(const DcmTagKey& tag) const {
    return numbersOf<std::uint16_t>(bytes(tag));
}

std::optional<std::uint16_t> Header::word(const DcmTagKey& tag) const {
    return dicom::unsignedShort(bytes(tag), true);
}

std::vector<std::int32_t> Header::longs(const DcmTagKey& tag) const {
    return numbersOf<std::int32_t>(bytes(tag));
}

const std::vector<Header>& Header::items(const DcmTagKey& tag) const {
    static const std::vector<Header> None;
    const auto found = std::find_if(sequences_.begin(), sequences_.end(),
                                    [&](const auto& entry) { return entry.first == tag; });
    return found == sequences_.end() ? None : found->second;
}

const Header* Header::item(const DcmTagKey& tag) const {
    return item(tag, 0);
}

const Header* Header::item(const DcmTagKey& tag, std::size_t index) const {
    const auto& all = items(tag);
    return index < all.size() ? &all[index] : nullptr;
}

ObjectHeader readHeader(const dicom::ObjectFile& object, const decoder::Heartbeat& heartbeat) {
    HeaderCollector collector;
    images::walkHeader(object, collector, heartbeat);
    return collector.finish();
}

}  // namespace tessaly::tessalyd::composing
