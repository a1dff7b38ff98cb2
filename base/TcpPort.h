#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tessaly::base {

/// The number of a TCP port; nothing where the text is no number from 1 to 65535, without sign or blanks.
[[nodiscard]] inline std::optional<std::uint16_t> tcpPort(std::string_view text) noexcept {
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, fault] = std::from_chars(text.data(), end, port);
    return fault == std::errc{} && stop == end && port != 0 ? std::optional{port} : std::nullopt;
}

}  // namespace tessaly::base
