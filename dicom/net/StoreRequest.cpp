#include "dicom/net/StoreRequest.h"

#include <dcmtk/dcmnet/assoc.h>
#include <dcmtk/dcmnet/diutil.h>
#include <dcmtk/dcmnet/dul.h>
#include <dcmtk/ofstd/ofstd.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace tessaly::dicom {

namespace {

constexpr std::size_t LongestPart = std::size_t{256} << 10U;

/// A command as it goes over the wire: group 0000 in implicit little endian, in ascending order.
class Command {
  public:
    void add(std::uint16_t element, std::uint16_t value) {
        begin(element, sizeof value);
        number(value, sizeof value);
    }
    void add(std::uint16_t element, std::string value, char padding) {
        if (value.size() % 2 != 0)
            value += padding;
        begin(element, static_cast<std::uint32_t>(value.size()));
        bytes_.insert(bytes_.end(), value.begin(), value.end());
    }
    /// With the group's length before it.
    [[nodiscard]] std::vector<char> bytes() && {
        Command whole;
        constexpr std::uint32_t Size = 4;
        whole.begin(0, Size);
        whole.number(static_cast<std::uint32_t>(bytes_.size()), Size);
        whole.bytes_.insert(whole.bytes_.end(), bytes_.begin(), bytes_.end());
        return std::move(whole.bytes_);
    }

  private:
    void begin(std::uint16_t element, std::uint32_t length) {
        number(0, 2);
        number(element, 2);
        number(length, 4);
    }
    void number(std::uint32_t value, int size) {
        for (int i = 0; i < size; ++i, value >>= 8U)
            bytes_.push_back(static_cast<char>(value & 0xffU));
    }

    std::vector<char> bytes_;
};

}  // namespace

SendResult resultOf(std::uint16_t status, const std::string& comment) {
    if (status == STATUS_Success)
        return {};
    const bool warning = DICOM_WARNING_STATUS(status);
    std::array<char, 8> number{};
    (void)std::snprintf(number.data(), number.size(), "%04X", unsigned{status});
    return {.outcome = warning ? SendResult::Outcome::Warning : SendResult::Outcome::Failed,
            .status = status,
            .detail = std::string{"status "} + number.data(),
            .comment = comment};
}

T_DIMSE_Message StoreRequest::message(const OutgoingObject& object, const MoveOriginator* originator) const {
    T_DIMSE_Message all{};
    all.CommandField = DIMSE_C_STORE_RQ;
    T_DIMSE_C_StoreRQ& request = all.msg.CStoreRQ;
    request.MessageID = messageId_;
    request.Priority = DIMSE_PRIORITY_MEDIUM;
    request.DataSetType = DIMSE_DATASET_PRESENT;
    const auto copy = [](auto& target, const std::string& text) {
        OFStandard::strlcpy(target, text.c_str(), sizeof target);
    };
    copy(request.AffectedSOPClassUID, object.kind().sopClass);
    copy(request.AffectedSOPInstanceUID, object.sopInstanceUid());
    if (originator != nullptr) {
        copy(request.MoveOriginatorApplicationEntityTitle, originator->aeTitle);
        request.MoveOriginatorID = originator->messageId;
        request.opts = O_STORE_MOVEORIGINATORAETITLE | O_STORE_MOVEORIGINATORID;
    }
    return all;
}

OFCondition StoreRequest::send(OutgoingObject& object, const MoveOriginator* originator) {
    const std::size_t perPdu = std::max<std::size_t>(association_.sendPDVLength, 2);
    buffer_.resize(std::max(perPdu, LongestPart - LongestPart % perPdu));
    std::size_t left = object.size();
    const auto next = [&] {
        const auto part = std::span{buffer_}.first(std::min(left, buffer_.size()));
        object.read(part);
        left -= part.size();
        return part;
    };
    auto part = next();  // before anything is sent: mostly that is all of it

    constexpr std::uint16_t StoreRq = 0x0001;
    Command command;
    command.add(0x0002, object.kind().sopClass, '\0');
    command.add(0x0100, StoreRq);
    command.add(0x0110, messageId_);
    command.add(0x0700, DIMSE_PRIORITY_MEDIUM);
    command.add(0x0800, DIMSE_DATASET_PRESENT);
    command.add(0x1000, object.sopInstanceUid(), '\0');
    if (originator != nullptr) {
        command.add(0x1030, originator->aeTitle, ' ');
        command.add(0x1031, originator->messageId);
    }
    begun_ = true;
    OFCondition written = write(true, std::move(command).bytes(), true);
    while (written.good()) {
        written = write(false, part, left == 0);
        if (left == 0)
            break;
        part = next();
    }
    return written;
}

/// The toolkit splits what is longer than the other side takes in one piece.
OFCondition StoreRequest::write(bool command, std::span<const char> bytes, bool last) {
    DUL_PDV pdv{};
    pdv.fragmentLength = bytes.size();
    pdv.presentationContextID = context_;
    pdv.pdvType = command ? DUL_COMMANDPDV : DUL_DATASETPDV;
    pdv.lastPDV = last ? OFTrue : OFFalse;
    pdv.data = const_cast<char*>(bytes.data());
    DUL_PDVLIST list{.count = 1, .scratch = nullptr, .scratchLength = 0, .abort = {}, .pdv = &pdv};
    return DUL_WritePDVs(&association_.DULassociation, &list);
}

}  // namespace tessaly::dicom
