#include "tessalyd/forwarding/films/NewUid.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include "db/Query.h"

namespace tessaly::tessalyd::films {

namespace {

constexpr std::size_t LongestUid = 64;
constexpr std::size_t FewestDigits = 20;  // chance makes two the same after some 10^10
constexpr std::size_t MostDigits = 38;    // fewer than 2^128 has

bool isUid(const std::string& text) {
    bool begins = true;
    bool isZero = false;
    for (const char c : text) {
        const bool isDigit = c >= '0' && c <= '9';
        if ((!isDigit && c != '.') || (c == '.' && begins) || (isDigit && isZero))
            return false;
        isZero = isDigit && begins && c == '0';
        begins = c == '.';
    }
    return !text.empty() && !begins;
}

}  // namespace

std::string newUid(const std::string& baseUid) {
    const bool hasRoom = isUid(baseUid) && baseUid.size() + 1 + FewestDigits <= LongestUid;
    std::string uid = (hasRoom ? baseUid : "2.25") + '.';
    std::array<std::uint8_t, MostDigits> random{};
    if (::getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size()))
        throw std::system_error{errno, std::generic_category(), "no random number"};
    const std::size_t digits = std::min(MostDigits, LongestUid - uid.size());
    constexpr unsigned Ten = 10;
    for (std::size_t i = 0; i < digits; ++i)  // none begins with a zero
        uid.push_back(static_cast<char>('0' + (i == 0 ? 1 + random[i] % (Ten - 1) : random[i] % Ten)));
    return uid;
}

std::string readBaseUid(const db::Connection& connection) {
    db::Query site{connection, "SELECT BaseUID FROM SiteData"};
    db::ResultSet row = site.open();
    return row.next() ? row.text("BaseUID") : std::string{};
}

}  // namespace tessaly::tessalyd::films
