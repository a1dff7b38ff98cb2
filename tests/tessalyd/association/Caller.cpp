#include "tests/tessalyd/association/Caller.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <stdexcept>

#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/RequestorAssociation.h"

namespace tessaly::test {

namespace {

sockaddr_in loopback(const QByteArray& address, std::uint16_t port) {
    sockaddr_in made{};
    made.sin_family = AF_INET;
    made.sin_port = htons(port);
    if (::inet_pton(AF_INET, address.constData(), &made.sin_addr) != 1)
        throw std::runtime_error{"no address"};
    return made;
}

QByteArray hex(qsizetype value, qsizetype bytes) {
    return QByteArray::fromHex(QByteArray::number(value, 16).rightJustified(2 * bytes, '0'));
}

}  // namespace

Caller::Caller(const QString& port, const QByteArray& address)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in own = loopback(address, 0);
    const sockaddr_in peer = loopback("127.0.0.1", port.toUShort());
    const auto* const generic = reinterpret_cast<const sockaddr*>(&peer);
    if (::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) < 0 ||
        ::connect(socket_.get(), generic, sizeof peer) < 0)
        throw std::runtime_error{"no connection"};
}

void Caller::send(const QByteArray& bytes) {
    // A peer that has closed is seen by what it answers.
    (void)::send(socket_.get(), bytes.constData(), static_cast<std::size_t>(bytes.size()), MSG_NOSIGNAL);
}

int Caller::answer() {
    const auto take = [this](qsizetype count) {
        QByteArray taken;
        while (taken.size() < count) {
            pollfd readable{.fd = socket_.get(), .events = POLLIN, .revents = 0};
            if (::poll(&readable, 1, PatienceMs) <= 0)
                throw std::runtime_error{"no answer"};
            QByteArray part(count - taken.size(), '\0');
            const ssize_t came = ::recv(socket_.get(), part.data(), static_cast<std::size_t>(part.size()), 0);
            if (came <= 0)
                return QByteArray{};
            taken += part.first(came);
        }
        return taken;
    };
    constexpr qsizetype Head = 6;
    const QByteArray head = take(Head);
    if (head.isEmpty())
        return -1;
    const qsizetype length = head.last(4).toHex().toLongLong(nullptr, 16);
    return length > 0 && take(length).isEmpty() ? -1 : head.front();
}

bool Caller::hasAnswer() const {
    pollfd readable{.fd = socket_.get(), .events = POLLIN, .revents = 0};
    return ::poll(&readable, 1, 0) > 0;
}

void Caller::request(const QByteArray& callingTitle) {
    constexpr qsizetype Title = 26;
    constexpr qsizetype Length = 16;
    send(associationRequest().replace(Title, Length, callingTitle.leftJustified(Length)));
}

int Caller::associate(const QByteArray& callingTitle) {
    request(callingTitle);
    return answer();
}

QByteArray Caller::echo() {
    const QByteArray command = QByteArray::fromHex(
        "0000000004000000"
        "38000000"
        "0000020012000000"
        "312e322e3834302e31303030382e312e3100"
        "0000000102000000"
        "3000"
        "0000100102000000"
        "0100"
        "0000000802000000"
        "0101");
    const QByteArray part = hex(command.size() + 2, 4) + QByteArray::fromHex("0103") + command;
    return QByteArray::fromHex("0400") + hex(part.size(), 4) + part;
}

}  // namespace tessaly::test
