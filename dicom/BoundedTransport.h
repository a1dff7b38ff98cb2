#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dcmlayer.h>

#include <chrono>
#include <stop_token>

namespace tessaly::dicom {

/// Makes DICOM connections whose waits all end at one point in time, or at a stop. DCMTK's own time-outs
/// start anew with every message and do not reach into one: a peer that sends half a message, or a byte now
/// and then, would keep the caller for as long as it likes.
class BoundedTransport : public DcmTransportLayer {
  public:
    using Clock = std::chrono::steady_clock;

    BoundedTransport(Clock::time_point deadline, std::stop_token stop);
    ~BoundedTransport() override;
    BoundedTransport(const BoundedTransport&) = delete;
    BoundedTransport& operator=(const BoundedTransport&) = delete;

    [[nodiscard]] Clock::time_point deadline() const noexcept { return deadline_; }
    void setDeadline(Clock::time_point deadline) noexcept { deadline_ = deadline; }
    [[nodiscard]] bool isExpired() const noexcept { return Clock::now() >= deadline_; }
    [[nodiscard]] bool isStopped() const noexcept { return stop_.stop_requested(); }
    /// True once a TCP connection stood.
    [[nodiscard]] bool wasConnected() const noexcept { return connected_; }

    /// Waits for data or the end of the stream, at most `atMost`. False when the time or the stop came first.
    [[nodiscard]] bool waitForData(int socket, std::chrono::milliseconds atMost) const;

    DcmTransportConnection* createConnection(DcmNativeSocketType openSocket, OFBool useSecureLayer) override;

  private:
    Clock::time_point deadline_;
    std::stop_token stop_;
    int wakeUp_;  // an event that a stop raises
    bool connected_ = false;
};

}  // namespace tessaly::dicom
