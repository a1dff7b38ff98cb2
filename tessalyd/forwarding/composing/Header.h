#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "decoder/JobPlan.h"
#include "dicom/data/ObjectFile.h"

namespace tessaly::tessalyd::composing {

/// What films are composed by, of an object or of an item of one of its sequences. Numbers are in little
/// endian, whatever they were.
class Header {
  public:
    [[nodiscard]] bool has(const DcmTagKey& tag) const { return find(tag) != nullptr; }
    /// Without padding; empty if it is missing.
    [[nodiscard]] std::string_view text(const DcmTagKey& tag) const;
    /// One of several values, of a text or of doubles. Returns nullopt if it is missing or no number.
    [[nodiscard]] std::optional<double> decimal(const DcmTagKey& tag, std::size_t index = 0) const;
    /// Likewise, of a text alone.
    [[nodiscard]] std::optional<std::int64_t> integer(const DcmTagKey& tag) const;
    /// The values, of 16 bits each.
    [[nodiscard]] std::vector<std::uint16_t> words(const DcmTagKey& tag) const;
    /// The first of them.
    [[nodiscard]] std::optional<std::uint16_t> word(const DcmTagKey& tag) const;
    /// The values, of 32 bits each, with a sign.
    [[nodiscard]] std::vector<std::int32_t> longs(const DcmTagKey& tag) const;
    /// As it is stored; empty if it is missing.
    [[nodiscard]] std::string_view bytes(const DcmTagKey& tag) const;
    /// EVR_UNKNOWN if it is missing; EVR_xs where it was not sent and may be signed or not.
    [[nodiscard]] DcmEVR representation(const DcmTagKey& tag) const;
    /// Empty if there is no such sequence.
    [[nodiscard]] const std::vector<Header>& items(const DcmTagKey& tag) const;
    /// The first item; null if there is none.
    [[nodiscard]] const Header* item(const DcmTagKey& tag) const;
    /// The item at the index, else nothing.
    [[nodiscard]] const Header* item(const DcmTagKey& tag, std::size_t index) const;

  private:
    friend class HeaderCollector;
    struct Value {
        DcmEVR vr = EVR_UNKNOWN;
        std::string bytes = {};
    };
    [[nodiscard]] const Value* find(const DcmTagKey& tag) const;

    // Few each: they are searched one by one.
    std::vector<std::pair<DcmTagKey, Value>> values_;
    std::vector<std::pair<DcmTagKey, std::vector<Header>>> sequences_;
};

struct ObjectHeader {
    Header attributes;
    bool hasPixels = false;
    bool hasOverlays = false;
    std::size_t memory = 0;  ///< bytes that it takes, about
};

/// Reads what stands before the pixel data and is wanted for composing, by the walk alone. Memory is bounded.
/// Throws images::ImageRefusal where it is not readable or too long; std::runtime_error where the file cannot
/// be read. What `heartbeat` throws comes through.
[[nodiscard]] ObjectHeader readHeader(const dicom::ObjectFile& object, const decoder::Heartbeat& heartbeat);

}  // namespace tessaly::tessalyd::composing
