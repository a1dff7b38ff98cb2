#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tessaly::dicom {

/// The moments that the value of a date or time key covers, both ends included; an end that is not given is
/// empty. Dates are eight digits, times twelve (with microseconds), so that they compare as texts.
struct MomentRange {
    std::string first;
    std::string last;
    bool isRange = false;  ///< was written with a hyphen

    [[nodiscard]] bool covers(std::string_view moment) const noexcept {
        return !moment.empty() && moment >= first && (last.empty() || moment <= last);
    }
};

/// Nothing for what is no date, or no range of dates. The old form with points is understood.
[[nodiscard]] std::optional<MomentRange> dateRange(std::string_view asked);
/// A time with fewer digits covers all that begin with them. The old form with colons is understood.
[[nodiscard]] std::optional<MomentRange> timeRange(std::string_view asked);

/// A stored value as the ranges are made of: the beginning of what it covers. Nothing for what is none.
[[nodiscard]] std::optional<std::string> storedDate(std::string_view text);
[[nodiscard]] std::optional<std::string> storedTime(std::string_view text);

}  // namespace tessaly::dicom
