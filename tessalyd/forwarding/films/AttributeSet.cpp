#include "tessalyd/forwarding/films/AttributeSet.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <charconv>

#include "base/Text.h"

namespace tessaly::tessalyd::films {

namespace {

using dicom::ElementHead;

bool isBinaryShort(DcmEVR vr) {
    return vr == EVR_US || vr == EVR_SS || vr == EVR_xs || vr == EVR_lt || vr == EVR_OW;
}

/// Blanks carry no meaning around these values, nor does the byte that makes a length even.
std::string withoutPadding(std::string_view value) {
    constexpr std::string_view Padding{" \0", 2};
    return std::string{base::trimmed(value, Padding)};
}

}  // namespace

std::optional<std::string> AttributeSet::text(const DcmTagKey& tag) const {
    const auto found = values_.find(tag);
    if (found == values_.end())
        return std::nullopt;
    if (!isBinaryShort(found->second.vr))
        return withoutPadding(found->second.bytes);
    std::string digits;
    for (const std::uint16_t number : numbers(tag))
        digits.append(digits.empty() ? "" : "\\").append(std::to_string(number));
    return digits;
}

std::optional<std::uint16_t> AttributeSet::number(const DcmTagKey& tag) const {
    const auto digits = text(tag);
    if (!digits)
        return std::nullopt;
    std::uint16_t number = 0;
    const char* const end = digits->data() + digits->size();
    const auto [stop, fault] = std::from_chars(digits->data(), end, number);
    return fault == std::errc{} && stop == end ? std::optional{number} : std::nullopt;
}

std::vector<std::uint16_t> AttributeSet::numbers(const DcmTagKey& tag) const {
    std::vector<std::uint16_t> found;
    const auto value = values_.find(tag);
    if (value == values_.end())
        return found;
    const std::string_view bytes{value->second.bytes};
    for (std::size_t at = 0; at + 2 <= bytes.size(); at += 2)
        found.push_back(dicom::unsignedShort(bytes.substr(at, 2), true).value_or(0));
    return found;
}

const std::vector<AttributeSet>* AttributeSet::items(const DcmTagKey& tag) const {
    const auto found = sequences_.find(tag);
    return found == sequences_.end() ? nullptr : &found->second;
}

std::string AttributeSet::textInItem(const DcmTagKey& sequence, const DcmTagKey& tag) const {
    const auto* const all = items(sequence);
    return all == nullptr || all->empty() ? std::string{} : all->front().text(tag).value_or("");
}

AttributeCollector::AttributeCollector(dicom::TransferSyntax syntax, Pixels pixels)
    : pixels_(std::move(pixels)), walk_(syntax, dicom::ElementWalk::Reading::ByRepresentation, *this) {}

AttributeSet* AttributeCollector::ownerOf(const ElementHead& head) {
    constexpr std::size_t InItem = 2;
    if (head.depth == 0)
        return &attributes_;
    const bool isInItem = head.depth == InItem && sequence_ != nullptr && !sequence_->empty();
    return isInItem ? &sequence_->back() : nullptr;
}

bool AttributeCollector::element(const ElementHead& head) {
    current_ = nullptr;
    inPixels_ = false;
    if (head.tag == DCM_ItemDelimitationItem || head.tag == DCM_SequenceDelimitationItem)
        return true;
    if (++elements_ > MostElements)
        return false;
    if (head.tag == DCM_Item) {
        if (head.depth == 1 && sequence_ != nullptr)
            sequence_->emplace_back();
        return true;
    }
    if (head.depth == 0)
        sequence_ = nullptr;
    AttributeSet* const owner = ownerOf(head);
    if (owner == nullptr)
        return true;
    const DcmEVR vr = dicom::representation(head);
    if (vr == EVR_SQ) {
        const auto [entry, isFirst] = owner->sequences_.try_emplace(head.tag);
        if (head.depth == 0 && isFirst)
            sequence_ = &entry->second;
        return true;
    }
    if (head.tag == DCM_PixelData) {
        inPixels_ = head.depth > 0 && head.length != ElementHead::Undefined && pixelBytes_ == 0;
        if (inPixels_)
            pixelBytes_ = head.length;
        return true;
    }
    const auto [entry, isFirst] = owner->values_.try_emplace(head.tag);
    if (isFirst) {
        entry->second.vr = vr;
        current_ = &entry->second.bytes;
    }
    return true;
}

void AttributeCollector::value(std::span<const char> piece) {
    if (inPixels_) {
        if (pixels_)
            pixels_(piece);
        return;
    }
    bytes_ += piece.size();
    if (current_ != nullptr && bytes_ <= MostBytes)
        current_->append(piece.begin(), piece.end());
}

std::optional<std::string> AttributeCollector::fault() const {
    if (walk_.isTooDeep())
        return "Sequences of the data set are nested too deeply";
    if (elements_ > MostElements)
        return "The data set has too many elements";
    if (bytes_ > MostBytes)
        return "The data set is too long";
    if (walk_.isIncomplete())
        return "The data set is cut off";
    return std::nullopt;
}

std::optional<AttributeSet> attributesOf(std::span<const char> bytes, dicom::TransferSyntax syntax) {
    AttributeCollector collector{syntax};
    collector.take(bytes);
    if (collector.fault())
        return std::nullopt;
    return std::move(collector.attributes());
}

}  // namespace tessaly::tessalyd::films
