#include "tessalyd/forwarding/ftp/Wording.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tessaly::tessalyd::ftp {

namespace {

using Outcome = Transfer::Outcome;
using Kind = Fault::Kind;
using Scope = Fault::Scope;

/// RFC 959, 4.2.1: what the codes say that servers give.
constexpr std::array Meanings{
    std::pair{421, "the service is not available"},
    std::pair{425, "no data connection"},
    std::pair{426, "the data connection was closed"},
    std::pair{450, "the file is not available now"},
    std::pair{451, "a fault of the server's own"},
    std::pair{452, "no room"},
    std::pair{500, "an unknown command"},
    std::pair{502, "a command that it does not have"},
    std::pair{530, "not logged in"},
    std::pair{532, "an account is needed"},
    std::pair{550, "not found, or not allowed"},
    std::pair{552, "no room for this user"},
    std::pair{553, "the name is not allowed"},
};

/// " (452: no room)"; empty where no reply has come that says no.
std::string reply(const Conversation& said) {
    if (said.code() < 400)
        return {};
    std::string text = " (" + std::to_string(said.code());
    const auto* const found = std::find_if(Meanings.begin(), Meanings.end(),
                                           [&](const auto& one) { return one.first == said.code(); });
    if (found != Meanings.end())
        text.append(": ").append(found->second);
    return text += ')';
}

std::string withDetail(const char* words, const std::string& detail) {
    std::string text{words};
    if (!detail.empty())
        text.append(": ").append(detail);
    return text;
}

std::string refusal(const Conversation& said) {
    if (said.sizeDiffers())
        return "what has come to the server has another size";
    const bool renames = said.verb() == "RNFR" || said.verb() == "RNTO";
    return (renames ? "the server does not rename the file" : "the server does not take the file") +
           reply(said);
}

std::string timeOut(const Conversation& said, const Limits& limits) {
    if (said.code() == 0)
        return "no answer of the server within " + std::to_string(limits.answer.count()) + " s";
    return "the server takes nothing for " + std::to_string(limits.idle.count()) + " s";
}

}  // namespace

Fault faultOf(const Transfer::Result& result, const Limits& limits) {
    const Conversation& said = result.conversation;
    switch (result.outcome) {
        case Outcome::Refused:
            return {Kind::Transient, Scope::File, refusal(said)};
        case Outcome::FolderRefused:
            return {Kind::Transient, Scope::File,
                    "the server neither has the folder nor makes it" + reply(said)};
        case Outcome::SourceFailed:
            return {Kind::Transient, Scope::File, withDetail("the file cannot be read", result.detail)};
        case Outcome::NotConnected:
            return {Kind::Transient, Scope::Connection, withDetail("no connection", result.detail)};
        case Outcome::NotSecure:
            return {Kind::Transient, Scope::Connection,
                    withDetail("no secure connection", result.detail) + reply(said)};
        case Outcome::LoginRefused:
            if (said.refusesPassword())
                return {Kind::Permanent, Scope::Connection, "the server refuses user and password (530)"};
            return {Kind::Transient, Scope::Connection, "the server does not let us in" + reply(said)};
        case Outcome::TimedOut:
            return {Kind::Transient, Scope::Connection, timeOut(said, limits)};
        case Outcome::Broken:
            return {Kind::Transient, Scope::Connection, "the connection broke" + reply(said)};
        case Outcome::Other:
        case Outcome::Done:
            break;
    }
    return {Kind::Transient, Scope::Connection,
            withDetail("the transfer failed", result.detail) + reply(said)};
}

}  // namespace tessaly::tessalyd::ftp
