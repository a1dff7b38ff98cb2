#include "dicom/data/DateTimeRange.h"

#include <algorithm>

#include "dicom/data/Padding.h"

namespace tessaly::dicom {

namespace {

constexpr std::size_t DateDigits = 8;
constexpr std::size_t TimeDigits = 12;

bool isDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// Digits alone, in pairs but for the fraction. `separator` stands between the parts of the old form.
std::optional<std::string> digitsOf(std::string_view text, char separator, std::size_t firstPart) {
    std::string digits{text};
    if (digits.size() > firstPart && digits[firstPart] == separator) {
        for (std::size_t at = firstPart; at < digits.size() && digits[at] == separator; at += 2)
            digits.erase(at, 1);
    }
    if (digits.empty() || !isDigits(digits))
        return std::nullopt;
    return digits;
}

std::optional<std::string> dateDigits(std::string_view text) {
    auto digits = digitsOf(text, '.', 4);
    return digits && digits->size() == DateDigits ? digits : std::nullopt;
}

std::optional<std::string> timeDigits(std::string_view text) {
    constexpr std::size_t Seconds = 6;
    const std::size_t point = text.find('.');
    auto digits = digitsOf(text.substr(0, point), ':', 2);
    if (!digits || digits->size() > Seconds || digits->size() % 2 != 0)
        return std::nullopt;
    if (point == std::string_view::npos)
        return digits;
    const std::string_view fraction = text.substr(point + 1);
    if (digits->size() != Seconds || fraction.empty() || fraction.size() > TimeDigits - Seconds ||
        !isDigits(fraction))
        return std::nullopt;
    return *digits + std::string{fraction};
}

using Reader = std::optional<std::string> (*)(std::string_view);

std::optional<MomentRange> range(std::string_view asked, Reader read, std::size_t width) {
    asked = withoutBlanks(asked);
    const std::size_t hyphen = asked.find('-');
    MomentRange result{.first = {}, .last = {}, .isRange = hyphen != std::string_view::npos};
    const std::string_view first = withoutBlanks(asked.substr(0, hyphen));
    const std::string_view last = result.isRange ? withoutBlanks(asked.substr(hyphen + 1)) : first;
    if (first.empty() && last.empty())
        return std::nullopt;
    const auto put = [&](std::string_view text, char filler, std::string& end) {
        if (text.empty())
            return true;
        auto digits = read(text);
        if (digits)
            end = std::move(*digits) + std::string(width - digits->size(), filler);
        return digits.has_value();
    };
    if (!put(first, '0', result.first) || !put(last, '9', result.last))
        return std::nullopt;
    return result;
}

std::optional<std::string> filled(std::optional<std::string> digits, std::size_t width) {
    if (digits)
        digits->resize(width, '0');
    return digits;
}

}  // namespace

std::optional<MomentRange> dateRange(std::string_view asked) {
    return range(asked, dateDigits, DateDigits);
}

std::optional<MomentRange> timeRange(std::string_view asked) {
    return range(asked, timeDigits, TimeDigits);
}

std::optional<std::string> storedDate(std::string_view text) {
    return dateDigits(withoutBlanks(text));
}

std::optional<std::string> storedTime(std::string_view text) {
    return filled(timeDigits(withoutBlanks(text)), TimeDigits);
}

}  // namespace tessaly::dicom
