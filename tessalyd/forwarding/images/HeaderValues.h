#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessaly::tessalyd::images {

/// The values of a text, without the blanks around them.
[[nodiscard]] std::vector<std::string_view> valuesOf(std::string_view text);

/// All values of a decimal string, if there are exactly `count` and none is beyond any measure.
[[nodiscard]] std::optional<std::vector<double>> decimals(std::string_view text, std::size_t count);
/// A double of 8 bytes, if it is a number and not beyond any measure.
[[nodiscard]] std::optional<double> binaryDouble(std::string_view bytes, bool littleEndian);
/// An integer of 4 bytes.
[[nodiscard]] std::optional<std::int64_t> binaryLong(std::string_view bytes, bool littleEndian);
[[nodiscard]] std::optional<std::int64_t> integer(std::string_view text);

/// Microseconds since midnight; nullopt if it is no time.
[[nodiscard]] std::optional<std::int64_t> timeOfDay(std::string_view text);
/// Microseconds from the first day to this one's midnight.
[[nodiscard]] std::optional<std::int64_t> midnightOf(std::string_view text);
/// Both; what follows the time, a zone, is passed over.
[[nodiscard]] std::optional<std::int64_t> dateTime(std::string_view text);

}  // namespace tessaly::tessalyd::images
