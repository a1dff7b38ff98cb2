#include "base/Number.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/Text.h"

namespace tessaly::base {

namespace {

template <class Value>
std::optional<Value> parse(std::string_view text) noexcept {
    Value value{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end)
        return std::nullopt;
    return value;
}

}  // namespace

std::optional<double> decimalNumber(std::string_view text) noexcept {
    const auto number = parse<double>(text);
    return number && std::isfinite(*number) ? number : std::nullopt;
}

std::optional<long long> wholeNumber(std::string_view text) noexcept {
    return parse<long long>(text);
}

std::optional<long long> wholePart(std::string_view text) noexcept {
    if (const auto whole = wholeNumber(text))
        return whole;
    constexpr double Limit = 0x1p63;  // the first number that a long long cannot hold
    const auto number = decimalNumber(text);
    if (!number || *number < -Limit || *number >= Limit)
        return std::nullopt;
    return static_cast<long long>(*number);
}

std::optional<std::string> plainNumber(std::string_view text) {
    constexpr long long Furthest = 300;  // places of the point; no engine's number of any use has more
    text = trimmed(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    long long exponent = 0;
    if (const auto mark = text.find_first_of("eE"); mark != std::string_view::npos) {
        auto power = text.substr(mark + 1);
        if (power.starts_with('+'))
            power.remove_prefix(1);
        const auto read = wholeNumber(power);
        if (!read || *read < -Furthest || *read > Furthest)
            return std::nullopt;
        exponent = *read;
        text = text.substr(0, mark);
    }
    const auto point = std::min(text.find('.'), text.size());
    std::string digits{text.substr(0, point)};
    digits.append(text.substr(std::min(point + 1, text.size())));
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    // How many of them stand before the point; as many more as there have to be.
    auto before = static_cast<long long>(point) + exponent;
    if (before < 0)
        digits.insert(0, static_cast<std::size_t>(-before), '0');
    before = std::max(before, 0LL);
    if (before > static_cast<long long>(digits.size()))
        digits.append(static_cast<std::size_t>(before) - digits.size(), '0');
    std::string whole = digits.substr(0, static_cast<std::size_t>(before));
    std::string fraction = digits.substr(static_cast<std::size_t>(before));
    whole.erase(0, whole.find_first_not_of('0'));
    fraction.resize(fraction.find_last_not_of('0') + 1);
    const bool isZero = whole.empty() && fraction.empty();
    std::string plain{negative && !isZero ? "-" : ""};
    plain.append(whole.empty() ? "0" : whole);
    if (!fraction.empty())
        plain.append(".").append(fraction);
    return plain;
}

}  // namespace tessaly::base
