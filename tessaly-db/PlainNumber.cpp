#include "tessaly-db/PlainNumber.h"

#include <algorithm>

#include "base/Text.h"
#include "db/Number.h"

namespace tessaly::tool {

std::optional<std::string> plainNumber(std::string_view text) {
    constexpr long long Furthest = 300;  // places of the point; no engine's number of any use has more
    text = base::trimmed(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    long long exponent = 0;
    if (const auto mark = text.find_first_of("eE"); mark != std::string_view::npos) {
        auto power = text.substr(mark + 1);
        if (power.starts_with('+'))
            power.remove_prefix(1);
        const auto read = db::toWholeNumber(power);
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

}  // namespace tessaly::tool
