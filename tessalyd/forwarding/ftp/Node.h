#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "db/Connection.h"

namespace tessaly::tessalyd::ftp {

/// Where an FTP server is reached.
struct Address {
    std::string host;  ///< a name or a numeric address, without brackets
    std::uint16_t port = 21;
    bool tls = false;  ///< explicit TLS

    bool operator==(const Address&) const = default;
};

/// Reads `host`, `host:port`, `[v6]` and `[v6]:port`, each also with `ftpes://` before it. Returns nullopt
/// for anything else.
[[nodiscard]] std::optional<Address> parseAddress(std::string_view text);

/// A row of FtpNodes.
struct Node {
    std::string name;
    std::string host;  ///< as parseAddress() takes it
    std::string user;
    std::string password;  ///< in clear text, as the table has it
    std::string
        destination;   ///< a folder of the FTP server, relative to that of the login unless it begins with /
    std::string type;  ///< "Quib", "Analyze", "Lorvo"
};

/// The node of that name, without regard to case. Blanks around name, host and type carry no meaning. Throws
/// db::Error.
[[nodiscard]] std::optional<Node> findNode(const db::Connection& connection, std::string_view name);

/// A job's target: the name as it is compared, in lower case.
[[nodiscard]] std::string targetOf(std::string_view name);

/// The parts of a folder's name: those between slashes but for empty ones and ".". The first is "/" where the
/// name begins with one.
[[nodiscard]] std::vector<std::string> partsOf(std::string_view folder);

}  // namespace tessaly::tessalyd::ftp
