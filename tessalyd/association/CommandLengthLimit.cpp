#include "tessalyd/association/CommandLengthLimit.h"

#include <algorithm>

namespace tessaly::tessalyd {

bool CommandLengthLimit::follow(std::span<const char> bytes) {
    while (!bytes.empty()) {
        if (body_ > 0) {
            const auto passed = static_cast<std::size_t>(std::min<std::uint64_t>(body_, bytes.size()));
            body_ -= passed;
            incomplete_ += passed;
            bytes = bytes.subspan(passed);
            if (body_ == 0)
                endBody();
            continue;
        }
        if (phase_ == Phase::Between) {
            phase_ = Phase::Command;
            ++begun_;
        }
        ++incomplete_;
        header_[collected_++] = static_cast<unsigned char>(bytes.front());
        bytes = bytes.subspan(1);
        if (collected_ < header_.size())
            continue;
        collected_ = 0;
        if (!(pduLeft_ == 0 ? beginPdu() : beginPdv()))
            return false;
        if (body_ == 0)
            endBody();
    }
    return true;
}

/// A message ends with the PDU that its last part is in: the toolkit takes PDUs as a whole.
void CommandLengthLimit::endBody() {
    if (!isLast_ || pduLeft_ > 0)
        return;
    phase_ = Phase::Between;
    incomplete_ = 0;
}

bool CommandLengthLimit::beginPdu() {
    constexpr unsigned char Data = 4;
    isLast_ = header_[0] != Data;
    (isLast_ ? body_ : pduLeft_) = length(2);
    return true;
}

bool CommandLengthLimit::beginPdv() {
    constexpr std::uint64_t LengthField = 4;
    constexpr std::uint64_t ContextAndFlags = 2;
    constexpr unsigned Command = 1;
    constexpr unsigned Last = 2;
    const std::uint64_t size = length(0);
    if (size < ContextAndFlags || size + LengthField > pduLeft_)
        return false;
    pduLeft_ -= size + LengthField;
    body_ = size - ContextAndFlags;
    const unsigned flags = header_[5];
    isLast_ = (flags & Last) != 0;
    phase_ = (flags & Command) != 0 ? Phase::Command : Phase::DataSet;
    if (phase_ == Phase::DataSet)
        return true;
    command_ += body_;
    const bool fits = command_ <= LongestCommand;
    if (isLast_)
        command_ = 0;
    return fits;
}

std::uint32_t CommandLengthLimit::length(std::size_t offset) const {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i)
        value = value << 8U | header_[offset + i];
    return value;
}

}  // namespace tessaly::tessalyd
