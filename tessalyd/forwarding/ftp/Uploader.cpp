#include "tessalyd/forwarding/ftp/Uploader.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <array>

#include "dicom/net/HostLookup.h"
#include "tessalyd/forwarding/ftp/Wording.h"

namespace tessaly::tessalyd::ftp {

namespace {

using Outcome = Transfer::Outcome;

bool hasControls(const std::string& text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

Fault misconfigured(const std::string& reason) {
    return {Fault::Kind::Transient, Fault::Scope::Connection, reason};
}

std::string numeric(const dicom::SocketAddress& address) {
    std::array<char, NI_MAXHOST> text{};
    if (getnameinfo(address.get(), address.size(), text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) != 0)
        return {};
    std::string host{text.data()};
    if (address.isIpv6())
        host.insert(0, 1, '[').append(1, ']');
    return host;
}

/// The conversation goes on after these.
bool keepsConnection(const Transfer::Result& result) {
    const bool isRefusal = result.outcome == Outcome::Refused || result.outcome == Outcome::FolderRefused;
    return result.outcome == Outcome::Done || (isRefusal && !result.conversation.sizeDiffers());
}

std::vector<std::string> renaming(const std::string& part, const std::string& name) {
    return {"RNFR " + part, "RNTO " + name};
}

}  // namespace

Uploader::Uploader(Node node, std::stop_token stop, const Limits& limits)
    : node_(std::move(node)),
      destination_(partsOf(node_.destination)),
      stop_(std::move(stop)),
      limits_(limits) {
    const auto address = parseAddress(node_.host);
    if (!address)
        throw misconfigured("the node's host is none");
    if (hasControls(node_.user) || hasControls(node_.password) || hasControls(node_.destination))
        throw misconfigured("the node's user, password or destination has control characters");
    address_ = *address;
}

Uploader::~Uploader() = default;

/// All addresses of the host as the library takes them; empty where it is one already. The library's own
/// look-up could not be stopped.
std::string Uploader::resolvedHost() const {
    if (dicom::SocketAddress::parse(address_.host))
        return {};
    const auto found =
        dicom::lookUpHost(address_.host, std::chrono::steady_clock::now() + limits_.connect, stop_);
    std::string text;
    for (const dicom::SocketAddress& one : found.addresses) {
        if (const std::string address = numeric(one); !address.empty())
            text.append(text.empty() ? "" : ",").append(address);
    }
    if (stop_.stop_requested())
        throw Stopped{};
    if (text.empty())
        throw misconfigured("the host's address is not known" +
                            (found.failure.empty() ? std::string{} : ": " + found.failure));
    return text;
}

Transfer& Uploader::transfer() {
    if (!transfer_)
        transfer_ = std::make_unique<Transfer>(address_, node_, resolvedHost(), stop_, limits_);
    return *transfer_;
}

Uploader::Result Uploader::run(const std::vector<std::string>& folder, const std::string& name,
                               Source* source, const std::vector<std::string>& commands) {
    Result result = transfer().run(folder, name, source, commands);
    if (stop_.stop_requested() && result.outcome != Outcome::Done)
        throw Stopped{};
    if (result.conversation.lacksSize())
        hasSize_ = false;
    if (!keepsConnection(result))
        transfer_.reset();
    return result;
}

void Uploader::put(Source& source, const std::string& folder, const std::string& name) {
    if (stop_.stop_requested())
        throw Stopped{};
    std::vector<std::string> parts = destination_;
    const std::vector<std::string> below = partsOf(folder);
    parts.insert(parts.end(), below.begin(), below.end());
    const std::string part = name + ".part";
    std::vector<std::string> commands = renaming(part, name);
    if (hasSize_)
        commands.insert(commands.begin(), "*SIZE " + part);
    Result result = run(parts, part, &source, commands);
    if (result.outcome == Outcome::Broken && !result.conversation.isNew())  // closed while we were idle
        result = run(parts, part, &source, commands);
    if (result.outcome == Outcome::Refused && result.conversation.verb() == "RNTO") {
        commands = renaming(part, name);
        commands.insert(commands.begin(), "*DELE " + name);
        result = run(parts, {}, nullptr, commands);
    }
    if (result.outcome == Outcome::Done)
        return;
    if (result.outcome == Outcome::Refused || result.outcome == Outcome::SourceFailed)
        removePart(parts, part);
    throw faultOf(result, limits_);
}

void Uploader::removePart(const std::vector<std::string>& folder, const std::string& part) {
    (void)run(folder, {}, nullptr, {"*DELE " + part});
}

}  // namespace tessaly::tessalyd::ftp
