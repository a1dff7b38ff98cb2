#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dcmtrans.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "dicom/net/transport/ByteStream.h"
#include "dicom/net/transport/IoLimits.h"
#include "dicom/net/transport/Patience.h"

namespace tessaly::dicom {

/// A connection of the DICOM toolkit on either side of an association, whose every wait is bounded: by the
/// IoLimits, and in each direction by the pace that the peer has to keep. After a stop nothing is read any
/// more, and what the system takes at once is still sent: an abort, for example.
///
/// The toolkit writes a message in pieces and leaves Nagle's algorithm on, so that each side would wait for
/// the other's delayed acknowledgement. Here the pieces go out together, at once, as soon as the toolkit
/// turns to what comes back; what arrives is acknowledged at once and read ahead, so that a PDU's header
/// costs no call of its own.
class BoundedConnection : public DcmTCPConnection {
  public:
    /// Takes the socket over. Its bytes go by `stream`, or as they are where there is none.
    BoundedConnection(int socket, std::shared_ptr<const IoLimits> limits,
                      std::unique_ptr<ByteStream> stream = nullptr);

    /// The toolkit calls one of these before anything else. Blocks within the limits.
    OFCondition serverSideHandshake() override { return handshake(); }
    OFCondition clientSideHandshake() override { return handshake(); }
    ssize_t read(void* target, size_t size) override;
    ssize_t write(void* source, size_t size) override;
    /// With a time-out of zero it is a glance, which never waits: true once a whole message has come, or the
    /// connection is over. What was written some milliseconds ago goes out with it, as far as the system
    /// takes it.
    OFBool networkDataAvailable(int seconds) override;
    void close() override;
    void closeTransportConnection() override;

  protected:
    /// Sees everything that is read. False breaks the connection off.
    [[nodiscard]] virtual bool arrived(std::span<const char> /*bytes*/) { return true; }
    /// Sees the end of the stream (0) and failures (-1) too.
    virtual void received(ssize_t /*bytes*/) {}
    virtual void sent(std::size_t /*bytes*/) {}
    /// How many of the bytes that have come belong to a message that has not come whole.
    [[nodiscard]] virtual std::uint64_t incomplete() const { return 0; }

    /// How long the peer is waited for when something is to come.
    [[nodiscard]] Patience& reading() noexcept { return reading_; }

  private:
    enum class Came { Bytes, Nothing, End };
    enum class Blocking { Yes, No };
    OFCondition handshake();
    Came receive();
    bool fill();
    bool glance();
    bool flush(std::span<const char> more = {}, Blocking blocking = Blocking::Yes);
    bool waitToRead(std::chrono::milliseconds atMost);
    bool waitToSend(short event);
    void countTaken(std::size_t written);

    std::shared_ptr<const IoLimits> limits_;
    std::unique_ptr<ByteStream> stream_;
    ByteStream::Kind wanted_ = ByteStream::Kind::WantsToRead;  // by the stream, when nothing could be read
    Patience reading_;
    Patience sending_;
    std::size_t queued_ = 0;     // in the system's buffer, when it was last counted
    std::vector<char> waiting_;  // to be sent
    IoLimits::Clock::time_point lastSent_;
    bool broken_ = false;  // nothing can be sent any more
    bool ended_ = false;   // nothing comes any more
    std::array<char, 65536> ahead_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    ssize_t result_ = 0;  // of a read when nothing is there
};

}  // namespace tessaly::dicom
