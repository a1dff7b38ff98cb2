#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tessaly::dicom {

/// The requests of PS3.7, by their Command Field.
enum class CommandField : std::uint16_t {
    CStore = 0x0001,
    CGet = 0x0010,
    CFind = 0x0020,
    CMove = 0x0021,
    CEcho = 0x0030,
    NEventReport = 0x0100,
    NGet = 0x0110,
    NSet = 0x0120,
    NAction = 0x0130,
    NCreate = 0x0140,
    NDelete = 0x0150,
    CCancel = 0x0fff
};

/// A command set (group 0000) of any DIMSE service, C or N, request or response. A value: its attributes by
/// their tags, one encoding for the wire and one text for dumps. Nothing of a peer is kept beyond the bytes
/// that came.
class Command {
  public:
    [[nodiscard]] static Command request(CommandField field, std::uint16_t messageId);
    /// The response to any request: its field, message ID, SOP class, SOP instance and, where it has them,
    /// action and event type.
    [[nodiscard]] static Command responseTo(const Command& request, std::uint16_t status);
    /// A command set as received. Returns nullopt if it is malformed, has a UID or a title that is too long,
    /// or lacks what PS3.7 requires of its kind.
    [[nodiscard]] static std::optional<Command> parse(std::span<const char> bytes);

    /// Of a response, that of its request. May be none of the enumerators.
    [[nodiscard]] CommandField field() const;
    [[nodiscard]] bool isResponse() const;
    /// Of a response and of C-CANCEL, the ID of the message that it is about.
    [[nodiscard]] std::uint16_t messageId() const;
    [[nodiscard]] bool hasDataSet() const;
    /// Affected or requested, whichever it has; empty if it has none.
    [[nodiscard]] std::string sopClassUid() const;
    [[nodiscard]] std::string sopInstanceUid() const;
    /// 0 if it has none.
    [[nodiscard]] std::uint16_t status() const;

    /// Of an attribute of 16 bits: status, action type, event type. Returns nullopt if it is missing.
    [[nodiscard]] std::optional<std::uint16_t> number(const DcmTagKey& tag) const;
    /// Of any other attribute, without padding; empty if it is missing.
    [[nodiscard]] std::string value(const DcmTagKey& tag) const;
    /// Of an attribute whose values are tags of others: Attribute Identifier List.
    [[nodiscard]] std::vector<DcmTagKey> tags(const DcmTagKey& tag) const;

    Command& set(const DcmTagKey& tag, std::uint16_t number);
    Command& set(const DcmTagKey& tag, std::string_view text);
    /// An attribute whose value is another attribute's tag.
    Command& set(const DcmTagKey& tag, const DcmTagKey& attribute);
    Command& setHasDataSet(bool has);

    /// As it goes over the wire, with the group's length.
    [[nodiscard]] std::vector<char> encoded() const;
    /// For dumps: "C-STORE RQ" and an attribute a line, printable.
    [[nodiscard]] std::string text() const;

  private:
    [[nodiscard]] std::uint16_t rawField() const;
    [[nodiscard]] bool isComplete() const;

    std::map<std::uint16_t, std::string> values_;  // by element, as they are on the wire
};

}  // namespace tessaly::dicom
