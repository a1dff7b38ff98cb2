#include "tessalyd/forwarding/films/DisplayFormat.h"

#include <algorithm>
#include <charconv>
#include <numeric>

namespace tessaly::tessalyd::films {

namespace {

/// "1,2,3"; empty where it is anything else.
std::vector<std::size_t> counts(std::string_view text) {
    std::vector<std::size_t> found;
    for (bool isLast = false; !isLast;) {
        const std::size_t comma = text.find(',');
        const std::string_view digits = text.substr(0, comma);
        std::size_t count = 0;
        const auto [stop, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), count);
        if (fault != std::errc{} || stop != digits.data() + digits.size() || count == 0 ||
            count > DisplayFormat::MostBoxes || found.size() == DisplayFormat::MostBoxes)
            return {};
        found.push_back(count);
        isLast = comma == std::string_view::npos;
        text.remove_prefix(isLast ? text.size() : comma + 1);
    }
    return found;
}

}  // namespace

std::optional<DisplayFormat> DisplayFormat::parse(std::string_view text) {
    const std::size_t backslash = text.find('\\');
    if (backslash == std::string_view::npos)
        return std::nullopt;
    const std::string_view kind = text.substr(0, backslash);
    const auto given = counts(text.substr(backslash + 1));
    DisplayFormat format;
    format.byColumn_ = kind == "COL";
    if (kind == "STANDARD" && given.size() == 2)
        format.groups_.assign(given[1], given[0]);
    else if (kind == "ROW" || kind == "COL")
        format.groups_ = given;
    const std::size_t boxes = format.boxes();
    return boxes == 0 || boxes > MostBoxes ? std::nullopt : std::optional{format};
}

std::size_t DisplayFormat::boxes() const {
    return std::accumulate(groups_.begin(), groups_.end(), std::size_t{0});
}

DisplayFormat::Size DisplayFormat::boxOf(std::size_t box, const Size& film) const {
    std::size_t inGroup = groups_.front();
    for (const std::size_t count : groups_) {
        inGroup = count;
        if (box < count)
            break;
        box -= count;
    }
    const auto part = [](unsigned whole, std::size_t parts) {
        return std::max(1U, static_cast<unsigned>(whole / parts));
    };
    return byColumn_ ? Size{.width = part(film.width, groups_.size()), .height = part(film.height, inGroup)}
                     : Size{.width = part(film.width, inGroup), .height = part(film.height, groups_.size())};
}

}  // namespace tessaly::tessalyd::films
