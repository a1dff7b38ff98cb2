#include "tests/tessalyd/forwarding/ftp/ScriptedFtp.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "base/FileDescriptor.h"

namespace tessaly::test {

namespace {

/// A listening socket on the loopback and its port.
std::pair<int, int> listenAnywhere() {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(socket, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(socket, 16) != 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error{"no port for the FTP server"};
    return {socket, ntohs(address.sin_port)};
}

bool sendLine(int socket, const std::string& line) {
    const std::string text = line + "\r\n";
    return ::send(socket, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

}  // namespace

struct ScriptedFtp::Session {
    int socket = -1;
    std::string user;
    std::string folder = "/";
    std::string renamed;
    bool hasDelivered = false;
    base::FileDescriptor data;  // listens

    [[nodiscard]] std::string path(const std::string& name) const {
        if (name.starts_with('/'))
            return name;
        return folder == "/" ? "/" + name : folder + "/" + name;
    }
};

ScriptedFtp::ScriptedFtp() {
    std::tie(listener_, port_) = listenAnywhere();
    thread_ = std::thread{[this] { accept(); }};
}

ScriptedFtp::~ScriptedFtp() {
    ending_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    {
        const std::lock_guard lock{mutex_};
        for (const int socket : sockets_)
            ::shutdown(socket, SHUT_RDWR);
    }
    for (std::thread& session : sessions_)
        session.join();
    ::close(listener_);
}

void ScriptedFtp::setScript(Script script) {
    const std::lock_guard lock{mutex_};
    script_ = std::move(script);
}

void ScriptedFtp::setAfterStore(Script script) {
    const std::lock_guard lock{mutex_};
    afterStore_ = std::move(script);
}

void ScriptedFtp::setFull(std::size_t bytes, const std::string& reply) {
    const std::lock_guard lock{mutex_};
    room_ = bytes;
    fullReply_ = reply;
}

std::map<std::string, QByteArray> ScriptedFtp::files() const {
    const std::lock_guard lock{mutex_};
    return files_;
}

QStringList ScriptedFtp::names() const {
    QStringList names;
    for (const auto& [path, content] : files())
        names << QString::fromStdString(path);
    return names;
}

void ScriptedFtp::putFile(const std::string& path, const QByteArray& content) {
    const std::lock_guard lock{mutex_};
    files_[path] = content;
}

QStringList ScriptedFtp::commands() const {
    const std::lock_guard lock{mutex_};
    return commands_;
}

void ScriptedFtp::accept() {
    while (!ending_) {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0)
            continue;
        ++connections_;
        const std::lock_guard lock{mutex_};
        sockets_.insert(socket);
        sessions_.emplace_back([this, socket] { serve(socket); });
    }
}

void ScriptedFtp::serve(int socket) {
    Session session{.socket = socket};
    std::string received;
    bool goesOn = obey(session, "CONNECT", {});
    std::array<char, 4096> buffer{};
    while (goesOn) {
        const auto end = received.find("\r\n");
        if (end == std::string::npos) {
            const ssize_t count = ::recv(socket, buffer.data(), buffer.size(), 0);
            if (count <= 0)
                break;
            received.append(buffer.data(), static_cast<std::size_t>(count));
            continue;
        }
        const std::string line = received.substr(0, end);
        received.erase(0, end + 2);
        const auto blank = std::min(line.find(' '), line.size());
        goesOn = obey(session, line.substr(0, blank), line.substr(std::min(blank + 1, line.size())));
    }
    const std::lock_guard lock{mutex_};
    sockets_.erase(socket);
    ::close(socket);
}

bool ScriptedFtp::obey(Session& session, const std::string& verb, const std::string& argument) {
    Script script;
    {
        const std::lock_guard lock{mutex_};
        commands_ << QString::fromStdString(verb);
        script = script_;
    }
    if (closesWhenIdle_ && session.hasDelivered)
        return false;
    if (const auto reply = script ? script(verb, argument) : std::nullopt) {
        if (*reply == Close)
            return false;
        return *reply == Silence || sendLine(session.socket, *reply);
    }
    if (verb == "STOR")
        return store(session, session.path(argument));
    return sendLine(session.socket, replyTo(session, verb, argument)) && verb != "QUIT";
}

std::string ScriptedFtp::replyTo(Session& session, const std::string& verb, const std::string& argument) {
    if (verb == "CONNECT")
        return "220 ready";
    if (verb == "USER") {
        session.user = argument;
        return "331 password";
    }
    if (verb == "PASS")
        return session.user == User && argument == Password ? "230 in" : "530 not with " + argument;
    if (verb == "PWD")
        return "257 \"/\"";
    if (verb == "TYPE")
        return "200 yes";
    if (verb == "EPSV" || verb == "PASV")
        return openData(session, verb == "EPSV");
    if (verb == "QUIT")
        return "221 bye";
    const std::lock_guard lock{mutex_};
    const std::string path = session.path(argument);
    if (verb == "CWD") {
        if (!folders_.contains(path))
            return "550 no such folder";
        session.folder = path;
        return "250 there";
    }
    if (verb == "MKD") {
        folders_.insert(path);
        return "257 made";
    }
    if (verb == "SIZE")
        return files_.contains(path) ? "213 " + std::to_string(files_[path].size()) : "550 no such file";
    if (verb == "DELE")
        return files_.erase(path) > 0 ? "250 gone" : "550 no such file";
    if (verb == "RNFR") {
        session.renamed = path;
        return files_.contains(path) ? "350 to" : "550 no such file";
    }
    return verb == "RNTO" ? rename(session, path) : "502 no " + verb;
}

std::string ScriptedFtp::rename(Session& session, const std::string& path) {
    if (!files_.contains(session.renamed))
        return "503 from what";
    files_[path] = files_[session.renamed];
    files_.erase(session.renamed);
    session.hasDelivered = true;
    return "250 renamed";
}

std::string ScriptedFtp::openData(Session& session, bool extended) {
    const auto [socket, port] = listenAnywhere();
    session.data = base::FileDescriptor{socket};
    if (extended)
        return "229 (|||" + std::to_string(port) + "|)";
    // An address that is not this one's: the client is not to believe it.
    return "227 (192,0,2,1," + std::to_string(port / 256) + "," + std::to_string(port % 256) + ")";
}

bool ScriptedFtp::store(Session& session, const std::string& path) {
    if (!session.data.isOpen())
        return sendLine(session.socket, "425 where");
    if (!sendLine(session.socket, "150 go on"))
        return false;
    base::FileDescriptor data{::accept4(session.data.get(), nullptr, nullptr, SOCK_CLOEXEC)};
    session.data.reset();
    std::optional<std::size_t> room;
    Script after;
    std::string reply = "226 done";
    {
        const std::lock_guard lock{mutex_};
        room = room_;
        after = afterStore_;
    }
    QByteArray content;
    std::array<char, 65536> buffer{};
    for (ssize_t count = 0; (count = ::recv(data.get(), buffer.data(), buffer.size(), 0)) > 0;) {
        content.append(buffer.data(), count);
        if (room && static_cast<std::size_t>(content.size()) > *room) {
            content.truncate(static_cast<qsizetype>(*room));
            const std::lock_guard lock{mutex_};
            reply = fullReply_;
            break;
        }
    }
    data.reset();
    putFile(path, content);
    if (const auto other = after ? after("STOR", path) : std::nullopt)
        reply = *other;
    if (reply == Close)
        return false;
    if (reply == Silence)
        return true;
    return sendLine(session.socket, reply);
}

}  // namespace tessaly::test
