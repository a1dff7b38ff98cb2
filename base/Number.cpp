#include "db/Number.h"

#include <charconv>
#include <cmath>

namespace tessaly::db {

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

std::optional<double> toNumber(std::string_view text) noexcept {
    const auto number = parse<double>(text);
    return number && std::isfinite(*number) ? number : std::nullopt;
}

std::optional<long long> toWholeNumber(std::string_view text) noexcept {
    return parse<long long>(text);
}

std::optional<long long> toInteger(std::string_view text) noexcept {
    if (const auto whole = toWholeNumber(text))
        return whole;
    constexpr double Limit = 0x1p63;  // the first number that a long long cannot hold
    const auto number = toNumber(text);
    if (!number || *number < -Limit || *number >= Limit)
        return std::nullopt;
    return static_cast<long long>(*number);
}

}  // namespace tessaly::db
