#include "tessaly-db/Row.h"

#include <sodium.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "base/Number.h"
#include "base/Text.h"
#include "tessaly-db/Text.h"

namespace tessaly::tool {

namespace {

std::string quoted(const std::string& text) {
    constexpr std::size_t Enough = 40;
    return '"' + (text.size() > Enough ? text.substr(0, Enough) + "..." : text) + '"';
}

/// Of a plain number: without the zeros that only say where its point is.
int digitsOf(const std::string& number) {
    std::string digits;
    std::copy_if(number.begin(), number.end(), std::back_inserter(digits),
                 [](char c) { return c >= '0' && c <= '9'; });
    const auto first = digits.find_first_not_of('0');
    return first == std::string::npos ? 0 : static_cast<int>(digits.find_last_not_of('0') - first) + 1;
}

/// The bounds of the column, where its type has some and the number is outside.
std::string boundsAround(long long number, const schema::Column& column) {
    if (column.bits == 0)
        return {};
    const long long limit = 1LL << static_cast<unsigned>(column.bits - 1);
    if (number >= -limit && number < limit)
        return {};
    return std::to_string(-limit) + " to " + std::to_string(limit - 1);
}

std::string unfitNumber(std::string& value, const schema::Column& column, const schema::Engine& target) {
    auto plain = base::plainNumber(value);
    const auto whole = plain ? base::wholeNumber(*plain) : std::nullopt;
    if (!column.fractions && !whole)
        return column.name + " is not a whole number: " + quoted(value);
    if (!plain)
        return column.name + " is not a number: " + quoted(value);
    if (!whole && target.exactDigits > 0 && digitsOf(*plain) > target.exactDigits)
        return column.name + " has more than " + std::to_string(target.exactDigits) +
               " digits: " + quoted(value);
    if (const auto bounds = target.bounds && whole ? boundsAround(*whole, column) : std::string{};
        !bounds.empty())
        return column.name + " is out of range: " + *plain + " is not within " + bounds;
    value = std::move(*plain);
    return {};
}

}  // namespace

std::vector<std::size_t> placesOf(const Columns& columns, const db::ResultSet& rows) {
    std::vector<std::size_t> places;
    for (const auto* column : columns) {
        const auto& there = rows.columns();
        const auto found = std::find_if(there.begin(), there.end(), [column](const auto& candidate) {
            return base::sameName(candidate.name, column->name);
        });
        if (found == there.end())
            throw db::Error("There is no column " + column->name);
        places.push_back(static_cast<std::size_t>(found - there.begin()));
    }
    return places;
}

void readRow(db::ResultSet& rows, const std::vector<std::size_t>& places, Row& row) {
    row.resize(places.size());
    for (std::size_t i = 0; i < places.size(); ++i) {
        if (const std::string* text = rows.value(places[i]); text != nullptr)
            row[i] = *text;
        else
            row[i].reset();
    }
}

std::string unfit(std::optional<std::string>& value, const schema::Column& column,
                  const schema::Engine& target) {
    if (!value)
        return column.required ? column.name + " is empty" : std::string{};
    if (!column.width)
        return unfitNumber(*value, column, target);
    if (value->find('\0') != std::string::npos)
        return column.name + " has a zero byte";
    const auto length = lengthOf(*value);
    if (!length)
        return column.name + " is not valid UTF-8";
    if (target.bounds && *length > static_cast<std::size_t>(*column.width))
        return column.name + " is too long: " + std::to_string(*length) + " of " +
               std::to_string(*column.width) + " characters";
    return {};
}

std::string nameOf(const schema::Table& table, const Columns& columns, const Row& row) {
    std::string name = table.name;
    for (std::size_t i = 0; i < columns.size(); ++i)
        if (std::find(table.key.begin(), table.key.end(), columns[i]->name) != table.key.end())
            name.append(" ").append(row[i].value_or("NULL"));
    return name;
}

void Digest::add(const Row& row) {
    bytes_.clear();
    for (const auto& value : row) {
        // The length before the text: no two rows have the same bytes.
        const std::uint64_t length = value ? value->size() : UINT64_MAX;
        bytes_.append(reinterpret_cast<const char*>(&length), sizeof length);
        if (value)
            bytes_.append(*value);
    }
    static_assert(crypto_shorthash_BYTES == sizeof sum_);
    constexpr std::array<unsigned char, crypto_shorthash_KEYBYTES> Key{};
    std::uint64_t hash = 0;
    crypto_shorthash(reinterpret_cast<unsigned char*>(&hash),
                     reinterpret_cast<const unsigned char*>(bytes_.data()), bytes_.size(), Key.data());
    sum_ += hash;
    ++rows_;
}

std::string Digest::text() const {
    constexpr std::string_view Digits = "0123456789abcdef";
    std::string text;
    for (int shift = 60; shift >= 0; shift -= 4)
        text.push_back(Digits[sum_ >> static_cast<unsigned>(shift) & 15U]);
    return text;
}

}  // namespace tessaly::tool
