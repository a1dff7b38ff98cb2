#include "dicom/data/AttributeReader.h"

#include <algorithm>
#include <numeric>

namespace tessaly::dicom {

AttributeReader::AttributeReader(TransferSyntax syntax, std::vector<DcmTagKey> wanted, const DcmTagKey& end,
                                 ElementVisitor* observer)
    : wanted_(std::move(wanted)),
      end_(end),
      observer_(observer),
      walk_(syntax, ElementWalk::Reading::ByRepresentation, *this) {
    std::sort(wanted_.begin(), wanted_.end());
}

bool AttributeReader::take(std::span<const char> bytes) {
    walk_.take(bytes);
    if (walk_.isTooDeep())
        throw HeaderFault{"Sequences of the object are nested too deeply"};
    if (isDisordered_)
        throw HeaderFault{"Too many elements of the object are out of order"};
    return walk_.isEnded();
}

void AttributeReader::finish() const {
    if (!walk_.isEnded() && walk_.isIncomplete())
        throw HeaderFault{"The data set is cut off"};
}

const AttributeReader::Value* AttributeReader::find(const DcmTagKey& tag) const {
    const auto found = values_.find(tag);
    return found == values_.end() ? nullptr : &found->second;
}

std::size_t AttributeReader::bytesKept() const noexcept {
    return std::accumulate(
        values_.begin(), values_.end(), std::size_t{0},
        [](std::size_t sum, const auto& value) { return sum + value.second.bytes.size(); });
}

bool AttributeReader::element(const ElementHead& head) {
    current_ = nullptr;
    const bool isOutermost = head.depth == 0;
    if (isOutermost && head.tag >= end_)
        return false;
    if (isOutermost) {
        outOfOrder_ += head.tag <= last_ ? 1 : 0;
        isDisordered_ = outOfOrder_ > MostOutOfOrder;
        if (isDisordered_)
            return false;
        last_ = head.tag;
    }
    if (isOutermost && std::binary_search(wanted_.begin(), wanted_.end(), head.tag)) {
        const auto [entry, isFirst] = values_.try_emplace(head.tag);
        if (isFirst) {
            entry->second.vr = representation(head);
            entry->second.littleEndian = head.littleEndian || head.vr == EVR_UN;
            if (head.length <= LongestValue)
                current_ = &entry->second;
        }
    }
    return observer_ == nullptr || observer_->element(head);
}

void AttributeReader::value(std::span<const char> piece) {
    if (current_ != nullptr)
        current_->bytes.append(piece.begin(), piece.end());
    if (observer_ != nullptr)
        observer_->value(piece);
}

}  // namespace tessaly::dicom
