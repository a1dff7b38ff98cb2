#include "tessalyd/services/commitment/CommitmentList.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <stdexcept>
#include <string_view>

#include "base/Text.h"
#include "dicom/data/ObjectHeader.h"

namespace tessaly::tessalyd {

namespace {

constexpr std::size_t LongestValue = 65;  // one more than a UID has

void trim(std::string& value) {
    value = std::string{base::trimmed(value, std::string_view{" \0", 2})};
}

}  // namespace

CommitmentParser::CommitmentParser(dicom::TransferSyntax syntax)
    : walk_(syntax, dicom::ElementWalk::Reading::ByRepresentation, *this) {}

void CommitmentParser::take(std::span<const char> bytes) {
    taken_ += bytes.size();
    if (taken_ <= MostBytes && !walk_.isEnded())
        walk_.take(bytes);
}

CommitmentParser::Result CommitmentParser::finish() {
    if (taken_ > MostBytes || count_ > MostReferences)
        return Result::TooLarge;
    endItem();
    trim(transactionUid_);
    const bool isGood = !isInvalid_ && !walk_.isTooDeep() && !walk_.isIncomplete() && count_ > 0 &&
                        dicom::isUid(transactionUid_);
    return isGood ? Result::Good : Result::Invalid;
}

/// Items end with their delimiter, or where the next begins: those of a length have none.
bool CommitmentParser::element(const dicom::ElementHead& head) {
    constexpr std::size_t InItem = 2;
    current_ = nullptr;
    if (head.tag == DCM_ItemDelimitationItem || head.tag == DCM_SequenceDelimitationItem)
        return true;
    if (head.depth == 0) {
        endItem();
        isInSequence_ = head.tag == DCM_ReferencedSOPSequence;
        if (head.tag == DCM_TransactionUID && transactionUid_.empty())
            current_ = &transactionUid_;
        return true;
    }
    if (!isInSequence_)
        return true;
    if (head.tag == DCM_Item) {
        if (head.depth < InItem) {
            endItem();
            isInItem_ = true;
            if (++count_ > MostReferences)
                return false;
        }
        return true;
    }
    if (isInItem_ && head.depth == InItem) {
        if (head.tag == DCM_ReferencedSOPClassUID)
            current_ = &item_.sopClass;
        else if (head.tag == DCM_ReferencedSOPInstanceUID)
            current_ = &item_.sopInstance;
    }
    return true;
}

void CommitmentParser::value(std::span<const char> piece) {
    if (current_ != nullptr && current_->size() < LongestValue)
        current_->append(piece.data(), std::min(piece.size(), LongestValue - current_->size()));
}

void CommitmentParser::endItem() {
    if (!isInItem_)
        return;
    isInItem_ = false;
    trim(item_.sopClass);
    trim(item_.sopInstance);
    if (dicom::isUid(item_.sopClass) && dicom::isUid(item_.sopInstance))
        references_.append(item_.sopClass).append(" ").append(item_.sopInstance).append("\n");
    else
        isInvalid_ = true;
    item_ = {};
}

CommitmentList::CommitmentList(const std::filesystem::path& file) : stream_(file, std::ios::binary) {
    if (!stream_)
        throw std::runtime_error{"the list of references cannot be opened"};
}

std::optional<Reference> CommitmentList::next() {
    if (!std::getline(stream_, line_)) {
        if (stream_.bad())
            throw std::runtime_error{"the list of references cannot be read"};
        return std::nullopt;
    }
    const std::size_t blank = line_.find(' ');
    if (blank == std::string::npos)
        throw std::runtime_error{"the list of references is damaged"};
    return Reference{.sopClass = line_.substr(0, blank), .sopInstance = line_.substr(blank + 1)};
}

}  // namespace tessaly::tessalyd
