#pragma once

#include <QByteArray>
#include <QString>

#include "base/FileDescriptor.h"

namespace tessaly::test {

/// A connection to the server from any address of the loopback, over which a test sends whatever bytes it
/// likes.
class Caller {
  public:
    /// Connects to the port of 127.0.0.1. Throws std::runtime_error.
    explicit Caller(const QString& port, const QByteArray& address = "127.0.0.1");

    void send(const QByteArray& bytes);
    /// The type of the next PDU; -1: the connection is over.
    [[nodiscard]] int answer();
    /// Whether the peer has sent something, or closed the connection.
    [[nodiscard]] bool hasAnswer() const;

    enum Pdu { Accept = 2, Reject = 3, Data = 4, Abort = 7 };
    /// Asks for an association for verification. Returns the answer.
    int associate(const QByteArray& callingTitle = "TESTER");
    /// Asks for an association and does not take the answer.
    void request(const QByteArray& callingTitle = "TESTER");
    /// A C-ECHO as it goes over the wire.
    [[nodiscard]] static QByteArray echo();

  private:
    base::FileDescriptor socket_;
};

}  // namespace tessaly::test
