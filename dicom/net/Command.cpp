#include "dicom/net/Command.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <array>

#include "dicom/data/Padding.h"
#include "dicom/data/PrintableText.h"

namespace tessaly::dicom {

namespace {

enum class Kind : std::uint8_t { Number, Uid, Title, Text, Tags };

struct Attribute {
    std::uint16_t element;
    Kind kind;
    const char* name;
};

/// PS3.7, annex E.
constexpr std::array Attributes{
    Attribute{0x0002, Kind::Uid, "Affected SOP Class UID"},
    Attribute{0x0003, Kind::Uid, "Requested SOP Class UID"},
    Attribute{0x0100, Kind::Number, "Command Field"},
    Attribute{0x0110, Kind::Number, "Message ID"},
    Attribute{0x0120, Kind::Number, "Message ID Being Responded To"},
    Attribute{0x0600, Kind::Title, "Move Destination"},
    Attribute{0x0700, Kind::Number, "Priority"},
    Attribute{0x0800, Kind::Number, "Command Data Set Type"},
    Attribute{0x0900, Kind::Number, "Status"},
    Attribute{0x0901, Kind::Tags, "Offending Element"},
    Attribute{0x0902, Kind::Text, "Error Comment"},
    Attribute{0x0903, Kind::Number, "Error ID"},
    Attribute{0x1000, Kind::Uid, "Affected SOP Instance UID"},
    Attribute{0x1001, Kind::Uid, "Requested SOP Instance UID"},
    Attribute{0x1002, Kind::Number, "Event Type ID"},
    Attribute{0x1005, Kind::Tags, "Attribute Identifier List"},
    Attribute{0x1008, Kind::Number, "Action Type ID"},
    Attribute{0x1020, Kind::Number, "Number of Remaining Sub-operations"},
    Attribute{0x1021, Kind::Number, "Number of Completed Sub-operations"},
    Attribute{0x1022, Kind::Number, "Number of Failed Sub-operations"},
    Attribute{0x1023, Kind::Number, "Number of Warning Sub-operations"},
    Attribute{0x1030, Kind::Title, "Move Originator Application Entity Title"},
    Attribute{0x1031, Kind::Number, "Move Originator Message ID"},
};

struct Service {
    CommandField field;
    const char* name;
    std::array<DcmTagKey, 3> required;  // of a request, beside what every request has; 0000,0000 is none
};

const DcmTagKey None{0, 0};

/// PS3.7, clauses 9.3 and 10.3.
const std::array Services{
    Service{
        CommandField::CStore, "C-STORE", {DCM_AffectedSOPClassUID, DCM_Priority, DCM_AffectedSOPInstanceUID}},
    Service{CommandField::CGet, "C-GET", {DCM_AffectedSOPClassUID, DCM_Priority, None}},
    Service{CommandField::CFind, "C-FIND", {DCM_AffectedSOPClassUID, DCM_Priority, None}},
    Service{CommandField::CMove, "C-MOVE", {DCM_AffectedSOPClassUID, DCM_Priority, DCM_MoveDestination}},
    Service{CommandField::CEcho, "C-ECHO", {DCM_AffectedSOPClassUID, None, None}},
    Service{CommandField::NEventReport,
            "N-EVENT-REPORT",
            {DCM_AffectedSOPClassUID, DCM_AffectedSOPInstanceUID, DCM_EventTypeID}},
    Service{CommandField::NGet, "N-GET", {DCM_RequestedSOPClassUID, DCM_RequestedSOPInstanceUID, None}},
    Service{CommandField::NSet, "N-SET", {DCM_RequestedSOPClassUID, DCM_RequestedSOPInstanceUID, None}},
    Service{CommandField::NAction,
            "N-ACTION",
            {DCM_RequestedSOPClassUID, DCM_RequestedSOPInstanceUID, DCM_ActionTypeID}},
    Service{CommandField::NCreate, "N-CREATE", {DCM_AffectedSOPClassUID, None, None}},
    Service{CommandField::NDelete, "N-DELETE", {DCM_RequestedSOPClassUID, DCM_RequestedSOPInstanceUID, None}},
    Service{CommandField::CCancel, "C-CANCEL", {None, None, None}},
};

constexpr std::uint16_t ResponseBit = 0x8000;
constexpr std::uint16_t DataSetPresent = 0x0001;
constexpr std::uint16_t NoDataSet = 0x0101;
constexpr std::size_t LongestUid = 64;
constexpr std::size_t LongestTitle = 16;

const Attribute* find(std::uint16_t element) {
    const auto* const found =
        std::find_if(Attributes.begin(), Attributes.end(),
                     [element](const Attribute& one) { return one.element == element; });
    return found == Attributes.end() ? nullptr : found;
}

const Service* find(CommandField field) {
    const auto* const found = std::find_if(Services.begin(), Services.end(),
                                           [field](const Service& one) { return one.field == field; });
    return found == Services.end() ? nullptr : found;
}

void append(std::vector<char>& bytes, std::uint32_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i, value >>= 8U)
        bytes.push_back(static_cast<char>(value & 0xffU));
}

std::uint32_t numberIn(std::span<const char> bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = value << 8U | static_cast<unsigned char>(bytes[i]);
    return value;
}

std::string hexadecimal(std::uint32_t value) {
    constexpr int Digits = 4;
    std::string text;
    appendHexadecimal(text, value, Digits);
    return text;
}

bool fits(std::uint16_t element, const std::string& value) {
    const Attribute* const attribute = find(element);
    if (attribute == nullptr)
        return true;
    switch (attribute->kind) {
        case Kind::Number:
            return value.size() == 2;
        case Kind::Uid:
            return withoutBlanks(value).size() <= LongestUid;
        case Kind::Title:
            return withoutBlanks(value).size() <= LongestTitle;
        default:
            return true;
    }
}

std::string shown(const std::string& value, Kind kind) {
    constexpr std::size_t Number = 2;
    if (kind == Kind::Text || kind == Kind::Uid || kind == Kind::Title)
        return '[' + printableAscii(withoutBlanks(value)) + ']';
    std::string text;
    const std::span<const char> bytes{value};
    for (std::size_t at = 0; at + Number <= bytes.size(); at += Number)
        text.append(at == 0 ? "" : " ").append(hexadecimal(numberIn(bytes.subspan(at, Number))));
    return text;
}

}  // namespace

Command Command::request(CommandField field, std::uint16_t messageId) {
    Command command;
    command.set(DCM_CommandField, static_cast<std::uint16_t>(field));
    command.set(field == CommandField::CCancel ? DCM_MessageIDBeingRespondedTo : DCM_MessageID, messageId);
    command.setHasDataSet(false);
    return command;
}

Command Command::responseTo(const Command& request, std::uint16_t status) {
    Command response;
    response.set(DCM_CommandField, static_cast<std::uint16_t>(request.rawField() | ResponseBit));
    response.set(DCM_MessageIDBeingRespondedTo, request.messageId());
    response.set(DCM_Status, status);
    response.setHasDataSet(false);
    if (const std::string sopClass = request.sopClassUid(); !sopClass.empty())
        response.set(DCM_AffectedSOPClassUID, sopClass);
    if (const std::string instance = request.sopInstanceUid(); !instance.empty())
        response.set(DCM_AffectedSOPInstanceUID, instance);
    for (const DcmTagKey& type : {DCM_ActionTypeID, DCM_EventTypeID}) {
        if (const auto number = request.number(type))
            response.set(type, *number);
    }
    return response;
}

std::optional<Command> Command::parse(std::span<const char> bytes) {
    constexpr std::size_t Head = 8;
    Command command;
    while (!bytes.empty()) {
        if (bytes.size() < Head)
            return std::nullopt;
        const std::uint32_t group = numberIn(bytes.first(2));
        const auto element = static_cast<std::uint16_t>(numberIn(bytes.subspan(2, 2)));
        const std::size_t length = numberIn(bytes.subspan(4, 4));
        bytes = bytes.subspan(Head);
        if (group != 0 || length > bytes.size())
            return std::nullopt;
        std::string value{bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)};
        bytes = bytes.subspan(length);
        if (element == 0)
            continue;
        if (!fits(element, value))
            return std::nullopt;
        command.values_.insert_or_assign(element, std::move(value));
    }
    if (!command.isComplete())
        return std::nullopt;
    return command;
}

bool Command::isComplete() const {
    const auto has = [this](const DcmTagKey& tag) { return values_.contains(tag.getElement()); };
    if (!has(DCM_CommandField) || !has(DCM_CommandDataSetType))
        return false;
    if (isResponse())
        return has(DCM_MessageIDBeingRespondedTo) && has(DCM_Status);
    if (field() == CommandField::CCancel)
        return has(DCM_MessageIDBeingRespondedTo);
    const Service* const service = find(field());
    return has(DCM_MessageID) &&
           (service == nullptr || std::all_of(service->required.begin(), service->required.end(),
                                              [&](const DcmTagKey& tag) { return tag == None || has(tag); }));
}

std::uint16_t Command::rawField() const {
    return number(DCM_CommandField).value_or(0);
}

CommandField Command::field() const {
    return static_cast<CommandField>(rawField() & ~ResponseBit);
}

bool Command::isResponse() const {
    return (rawField() & ResponseBit) != 0;
}

std::uint16_t Command::messageId() const {
    const bool isAboutAnother = isResponse() || field() == CommandField::CCancel;
    return number(isAboutAnother ? DCM_MessageIDBeingRespondedTo : DCM_MessageID).value_or(0);
}

bool Command::hasDataSet() const {
    return number(DCM_CommandDataSetType).value_or(NoDataSet) != NoDataSet;
}

std::string Command::sopClassUid() const {
    const std::string affected = value(DCM_AffectedSOPClassUID);
    return affected.empty() ? value(DCM_RequestedSOPClassUID) : affected;
}

std::string Command::sopInstanceUid() const {
    const std::string affected = value(DCM_AffectedSOPInstanceUID);
    return affected.empty() ? value(DCM_RequestedSOPInstanceUID) : affected;
}

std::uint16_t Command::status() const {
    return number(DCM_Status).value_or(0);
}

std::optional<std::uint16_t> Command::number(const DcmTagKey& tag) const {
    const auto found = values_.find(tag.getElement());
    if (found == values_.end() || found->second.size() != 2)
        return std::nullopt;
    return static_cast<std::uint16_t>(numberIn(found->second));
}

std::string Command::value(const DcmTagKey& tag) const {
    const auto found = values_.find(tag.getElement());
    return found == values_.end() ? std::string{} : std::string{withoutBlanks(found->second)};
}

std::vector<DcmTagKey> Command::tags(const DcmTagKey& tag) const {
    constexpr std::size_t Size = 4;
    std::vector<DcmTagKey> all;
    if (const auto found = values_.find(tag.getElement()); found != values_.end()) {
        const std::span<const char> bytes{found->second};
        for (std::size_t at = 0; at + Size <= bytes.size(); at += Size)
            all.emplace_back(static_cast<Uint16>(numberIn(bytes.subspan(at, 2))),
                             static_cast<Uint16>(numberIn(bytes.subspan(at + 2, 2))));
    }
    return all;
}

Command& Command::set(const DcmTagKey& tag, std::uint16_t number) {
    std::vector<char> bytes;
    append(bytes, number, sizeof number);
    values_.insert_or_assign(tag.getElement(), std::string{bytes.begin(), bytes.end()});
    return *this;
}

Command& Command::set(const DcmTagKey& tag, std::string_view text) {
    std::string value{text};
    const Attribute* const attribute = find(tag.getElement());
    if (value.size() % 2 != 0)
        value += attribute != nullptr && attribute->kind == Kind::Uid ? '\0' : ' ';
    values_.insert_or_assign(tag.getElement(), std::move(value));
    return *this;
}

Command& Command::set(const DcmTagKey& tag, const DcmTagKey& attribute) {
    std::vector<char> bytes;
    append(bytes, attribute.getGroup(), 2);
    append(bytes, attribute.getElement(), 2);
    values_.insert_or_assign(tag.getElement(), std::string{bytes.begin(), bytes.end()});
    return *this;
}

Command& Command::setHasDataSet(bool has) {
    return set(DCM_CommandDataSetType, has ? DataSetPresent : NoDataSet);
}

std::vector<char> Command::encoded() const {
    constexpr std::uint32_t Head = 8;
    constexpr std::uint32_t LengthSize = 4;
    std::uint32_t groupLength = 0;
    for (const auto& [element, value] : values_)
        groupLength += Head + static_cast<std::uint32_t>(value.size());
    std::vector<char> bytes;
    bytes.reserve(groupLength + Head + LengthSize);
    const auto begin = [&bytes](std::uint16_t element, std::uint32_t length) {
        append(bytes, 0, 2);
        append(bytes, element, 2);
        append(bytes, length, 4);
    };
    begin(0, LengthSize);
    append(bytes, groupLength, LengthSize);
    for (const auto& [element, value] : values_) {
        begin(element, static_cast<std::uint32_t>(value.size()));
        bytes.insert(bytes.end(), value.begin(), value.end());
    }
    return bytes;
}

std::string Command::text() const {
    const Service* const service = find(field());
    std::string text = service == nullptr ? "command " + hexadecimal(rawField()) : service->name;
    text.append(isResponse() ? " RSP" : " RQ");
    for (const auto& [element, value] : values_) {
        const Attribute* const attribute = find(element);
        text.append("\n  (0000,").append(hexadecimal(element)).append(") ");
        text.append(attribute == nullptr ? "unknown" : attribute->name).append(": ");
        text.append(shown(value, attribute == nullptr ? Kind::Text : attribute->kind));
    }
    return text;
}

}  // namespace tessaly::dicom
