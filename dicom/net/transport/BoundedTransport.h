#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dcmlayer.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>

#include "base/FileDescriptor.h"
#include "dicom/net/transport/IoLimits.h"
#include "dicom/net/transport/SocketAddress.h"

namespace tessaly::dicom {

/// Makes DICOM connections to peers whose waits are bounded, the making of the connection included. DCMTK's
/// own time-outs start anew with every message and do not reach into one: a peer that sends half a message,
/// or a byte now and then, would keep the caller for as long as it likes; and its connecting cannot be
/// stopped.
class BoundedTransport : public DcmTransportLayer {
  public:
    using Clock = IoLimits::Clock;
    /// Told of the bytes that come (0 is the end, -1 a failure) and go.
    struct Traffic {
        std::function<void(int socket, ssize_t bytes)> received;
        std::function<void(int socket, std::size_t bytes)> sent;
    };

    BoundedTransport(std::shared_ptr<IoLimits> ioLimits, Traffic traffic = {});
    ~BoundedTransport() override = default;
    BoundedTransport(const BoundedTransport&) = delete;
    BoundedTransport& operator=(const BoundedTransport&) = delete;

    [[nodiscard]] IoLimits& ioLimits() const noexcept { return *ioLimits_; }

    /// Connects to the first of the addresses that takes the connection. Each has its share of the time that
    /// is left, so that one that does not answer leaves the others theirs. Returns what the next association
    /// is to be asked for as its peer's presentation address, or nothing where there is no connection; errno
    /// tells why the last one failed, ETIMEDOUT also where the limits ended the wait. Throws
    /// std::system_error when this side has no socket.
    [[nodiscard]] std::optional<std::string> connect(std::span<const SocketAddress> addresses,
                                                     std::chrono::milliseconds atMost);

    DcmTransportConnection* createConnection(DcmNativeSocketType openSocket, OFBool useSecureLayer) override;

  private:
    std::shared_ptr<IoLimits> ioLimits_;
    Traffic traffic_;
    base::FileDescriptor socket_;    // connected to the peer, until an association has it
    base::FileDescriptor loopback_;  // what DCMTK connects to itself meanwhile
};

}  // namespace tessaly::dicom
