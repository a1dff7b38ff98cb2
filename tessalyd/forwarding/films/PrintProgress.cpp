#include "tessalyd/forwarding/films/PrintProgress.h"

#include <charconv>

namespace tessaly::tessalyd::films {

namespace {

constexpr std::string_view Of = " of ";
constexpr std::string_view Printed = " films printed";
constexpr std::string_view Asked = ", the next asked for";

bool take(std::string_view& text, std::size_t& number) {
    const auto [stop, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    return fault == std::errc{};
}

bool take(std::string_view& text, std::string_view words) {
    if (!text.starts_with(words))
        return false;
    text.remove_prefix(words.size());
    return true;
}

}  // namespace

PrintProgress PrintProgress::parse(std::string_view note) {
    PrintProgress progress;
    if (!take(note, progress.printed) || !take(note, Of) || !take(note, progress.films) ||
        !take(note, Printed))
        return {};
    progress.isAsked = note == Asked;
    return progress;
}

std::string PrintProgress::note() const {
    std::string text = std::to_string(printed);
    text.append(Of).append(std::to_string(films)).append(Printed);
    if (isAsked)
        text.append(Asked);
    return text;
}

}  // namespace tessaly::tessalyd::films
