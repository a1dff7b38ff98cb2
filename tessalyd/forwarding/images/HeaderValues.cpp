#include "tessalyd/forwarding/images/HeaderValues.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>

#include "base/Number.h"
#include "base/Text.h"

namespace tessaly::tessalyd::images {

using namespace std::string_view_literals;

namespace {

constexpr double Greatest = 1e9;  // what is beyond it is no measure of an image
constexpr std::int64_t Second = 1'000'000;
constexpr std::size_t DigitsOfFraction = 6;

bool areDigits(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// Of digits alone, and few of them.
std::int64_t small(std::string_view digits) {
    std::int64_t value = 0;
    for (const char c : digits)
        value = value * 10 + (c - '0');
    return value;
}

template <class Number>
std::optional<Number> binary(std::string_view bytes, bool littleEndian) {
    if (bytes.size() < sizeof(Number))
        return std::nullopt;
    Number value = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i)
        value |= Number{static_cast<unsigned char>(bytes[i])}
                 << 8U * (littleEndian ? i : sizeof(Number) - 1 - i);
    return value;
}

std::optional<double> measure(double value) {
    return std::isfinite(value) && std::abs(value) <= Greatest ? std::optional{value} : std::nullopt;
}

std::string_view withoutPlus(std::string_view text) {
    text.remove_prefix(text.starts_with('+') ? 1 : 0);
    return text;
}

}  // namespace

std::vector<std::string_view> valuesOf(std::string_view text) {
    std::vector<std::string_view> values;
    for (;;) {
        const auto end = text.find('\\');
        values.push_back(base::trimmed(text.substr(0, end), " \0"sv));
        if (end == std::string_view::npos)
            return values;
        text.remove_prefix(end + 1);
    }
}

std::optional<std::vector<double>> decimals(std::string_view text, std::size_t count) {
    const auto values = valuesOf(text);
    if (values.size() != count)
        return std::nullopt;
    std::vector<double> numbers;
    for (const auto value : values) {
        const auto number = base::decimalNumber(withoutPlus(value));
        if (!number || !measure(*number))
            return std::nullopt;
        numbers.push_back(*number);
    }
    return numbers;
}

std::optional<double> binaryDouble(std::string_view bytes, bool littleEndian) {
    const auto bits = binary<std::uint64_t>(bytes, littleEndian);
    return bits ? measure(std::bit_cast<double>(*bits)) : std::nullopt;
}

std::optional<std::int64_t> binaryLong(std::string_view bytes, bool littleEndian) {
    return binary<std::uint32_t>(bytes, littleEndian);
}

std::optional<std::int64_t> integer(std::string_view text) {
    return base::wholeNumber(withoutPlus(valuesOf(text).front()));
}

std::optional<std::int64_t> timeOfDay(std::string_view text) {
    const auto value = valuesOf(text).front();
    const auto point = value.find('.');
    const auto whole = value.substr(0, point);
    if (!areDigits(whole) || whole.size() > 6 || whole.size() % 2 != 0)
        return std::nullopt;
    const auto part = [whole](std::size_t at) {
        return at < whole.size() ? small(whole.substr(at, 2)) : std::int64_t{0};
    };
    std::int64_t fraction = 0;
    if (point != std::string_view::npos) {
        const auto digits = value.substr(point + 1).substr(0, DigitsOfFraction);
        if (!areDigits(digits))
            return std::nullopt;
        fraction = small(digits);
        for (std::size_t i = digits.size(); i < DigitsOfFraction; ++i)
            fraction *= 10;
    }
    if (part(0) > 23 || part(2) > 59 || part(4) > 60)
        return std::nullopt;
    return (part(0) * 3600 + part(2) * 60 + part(4)) * Second + fraction;
}

std::optional<std::int64_t> midnightOf(std::string_view text) {
    constexpr std::size_t Length = 8;
    const auto value = valuesOf(text).front();
    if (value.size() != Length || !areDigits(value))
        return std::nullopt;
    const std::chrono::year_month_day date{
        std::chrono::year{static_cast<int>(small(value.substr(0, 4)))},
        std::chrono::month{static_cast<unsigned>(small(value.substr(4, 2)))},
        std::chrono::day{static_cast<unsigned>(small(value.substr(6, 2)))}};
    if (!date.ok())
        return std::nullopt;
    return std::chrono::sys_days{date}.time_since_epoch().count() * 86'400 * Second;
}

std::optional<std::int64_t> dateTime(std::string_view text) {
    constexpr std::size_t Date = 8;
    const auto value = valuesOf(text).front();
    if (value.size() <= Date)
        return std::nullopt;
    const auto time = value.substr(Date);
    const auto midnight = midnightOf(value.substr(0, Date));
    const auto since = timeOfDay(time.substr(0, time.find_first_of("+-")));
    return midnight && since ? std::optional{*midnight + *since} : std::nullopt;
}

}  // namespace tessaly::tessalyd::images
