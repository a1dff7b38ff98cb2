#include "dicom/data/ElementListing.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dctag.h>

#include <algorithm>

#include "dicom/data/PrintableText.h"
#include "dicom/data/TextDecoder.h"

namespace tessaly::dicom {

namespace {

std::string numbers(std::string_view bytes, std::size_t size, bool littleEndian) {
    std::string text;
    for (; bytes.size() >= size; bytes.remove_prefix(size)) {
        unsigned long value = 0;
        for (std::size_t i = 0; i < size; ++i)
            value = value << 8U | static_cast<unsigned char>(bytes[littleEndian ? size - 1 - i : i]);
        text.append(text.empty() ? "" : "\\").append(std::to_string(value));
    }
    return text;
}

std::string hexadecimal(std::string_view bytes) {
    std::string text;
    for (const char c : bytes)
        appendHexadecimal(text.empty() ? text : text += '\\', static_cast<unsigned char>(c), 2);
    return text;
}

std::string shown(const ElementHead& head, DcmEVR vr, std::string_view bytes) {
    if (isText(vr)) {
        const std::size_t padding = bytes.find_last_not_of(std::string_view{" \0", 2}) + 1;
        return '[' + printableAscii(bytes.substr(0, padding)) + ']';
    }
    if (vr == EVR_US)
        return numbers(bytes, 2, head.littleEndian);
    if (vr == EVR_UL)
        return numbers(bytes, 4, head.littleEndian);
    return hexadecimal(bytes);
}

}  // namespace

bool ElementListing::element(const ElementHead& head) {
    endLine();
    const bool isDelimiter = head.tag == DCM_ItemDelimitationItem || head.tag == DCM_SequenceDelimitationItem;
    if (isDelimiter)
        return true;
    isOpen_ = count_ < MostLines;
    ++count_;
    head_ = head;
    return true;
}

void ElementListing::value(std::span<const char> piece) {
    if (isOpen_ && value_.size() < LongestValue)
        value_.append(piece.data(), std::min(piece.size(), LongestValue - value_.size()));
}

void ElementListing::endLine() {
    if (!isOpen_)
        return;
    isOpen_ = false;
    DcmTag tag{head_.tag};
    const DcmEVR vr = head_.vr != EVR_UNKNOWN ? head_.vr : tag.getEVR();
    lines_.append(2 * head_.depth, ' ').append("(");
    appendHexadecimal(lines_, head_.tag.getGroup(), 4);
    appendHexadecimal(lines_ += ',', head_.tag.getElement(), 4);
    lines_.append(") ").append(DcmVR{vr}.getValidVRName());
    if (!value_.empty())
        lines_.append(" ").append(shown(head_, vr, value_)).append(head_.length > value_.size() ? "..." : "");
    lines_ += "  # ";
    lines_ += head_.length == ElementHead::Undefined ? "undefined" : std::to_string(head_.length);
    lines_.append(" ").append(printableAscii(tag.getTagName())).append("\n");
    value_.clear();
}

std::string ElementListing::take() {
    endLine();
    if (count_ > MostLines)
        lines_ += std::to_string(count_ - MostLines) + " more elements\n";
    count_ = 0;
    return std::move(lines_);
}

}  // namespace tessaly::dicom
