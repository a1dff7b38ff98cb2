#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>
#include <cstdint>
#include <stop_token>

namespace tessaly::test {

/// A TCP connection to a port of this machine, for peers that do not keep to the protocol. Nothing here
/// throws: what the server refuses is what it should.
class RawPeer {
  public:
    /// Connects from 127.0.0.`host`.
    explicit RawPeer(const QString& port, std::uint8_t host = 1);
    ~RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    [[nodiscard]] bool isOpen() const { return socket_ >= 0; }
    /// False once the server has closed the connection. Does not wait for room.
    bool send(const QByteArray& bytes) const;
    /// Waits until the server closes the connection, reading what it sends, or the time is over, or the stop
    /// comes. True if it has closed it.
    bool waitForEnd(std::chrono::milliseconds atMost, const std::stop_token& stop) const;

  private:
    int socket_ = -1;
};

}  // namespace tessaly::test
