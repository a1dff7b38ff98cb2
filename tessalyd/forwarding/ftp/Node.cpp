#include "tessalyd/forwarding/ftp/Node.h"

#include <algorithm>

#include "base/TcpPort.h"
#include "base/Text.h"
#include "db/Query.h"
#include "dicom/net/transport/SocketAddress.h"

namespace tessaly::tessalyd::ftp {

namespace {

constexpr std::string_view TlsPrefix = "ftpes://";

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// What may stand in a URL as a host without being read as something else.
bool isHostName(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'z') || c == '-' || c == '.' ||
               c == '_';
    });
}

bool isNumericV6(const std::string& text) {
    const auto address = dicom::SocketAddress::parse(text);
    return address && address->isIpv6();
}

std::optional<Address> withPort(Address address, std::string_view port) {
    if (port.empty())
        return address;
    const auto number = port.front() == ':' ? base::tcpPort(port.substr(1)) : std::nullopt;
    if (!number)
        return std::nullopt;
    address.port = *number;
    return address;
}

}  // namespace

std::optional<Address> parseAddress(std::string_view text) {
    text = base::trimmed(text);
    Address address;
    if (base::sameName(text.substr(0, TlsPrefix.size()), TlsPrefix)) {
        address.tls = true;
        text.remove_prefix(TlsPrefix.size());
    }
    if (text.starts_with('[')) {
        const auto end = text.find(']');
        if (end == std::string_view::npos)
            return std::nullopt;
        address.host = text.substr(1, end - 1);
        if (!isNumericV6(address.host))
            return std::nullopt;
        return withPort(address, text.substr(end + 1));
    }
    const auto colon = std::min(text.find(':'), text.size());
    address.host = text.substr(0, colon);
    if (!isHostName(address.host))
        return std::nullopt;
    return withPort(address, text.substr(colon));
}

std::optional<Node> findNode(const db::Connection& connection, std::string_view name) {
    db::Query query{connection, "SELECT * FROM FtpNodes WHERE Name=?"};
    query.bind(1, db::varchar(std::string{base::trimmed(name)}));
    db::ResultSet row = query.open();
    if (!row.next())
        return std::nullopt;
    return Node{.name = row.text("Name"),
                .host = std::string{base::trimmed(row.text("Host"))},
                .user = row.text("UserName"),
                .password = row.text("UserPwd"),
                .destination = row.text("Destination"),
                .type = std::string{base::trimmed(row.text("NodeType"))}};
}

std::string targetOf(std::string_view name) {
    std::string target{base::trimmed(name)};
    std::transform(target.begin(), target.end(), target.begin(), lower);
    return target;
}

std::vector<std::string> partsOf(std::string_view folder) {
    std::vector<std::string> parts;
    if (folder.starts_with('/'))
        parts.emplace_back("/");
    while (!folder.empty()) {
        const auto end = std::min(folder.find('/'), folder.size());
        if (const auto part = folder.substr(0, end); !part.empty() && part != ".")
            parts.emplace_back(part);
        folder.remove_prefix(std::min(end + 1, folder.size()));
    }
    return parts;
}

}  // namespace tessaly::tessalyd::ftp
