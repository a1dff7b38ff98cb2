#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "dicom/net/Command.h"

namespace tessaly::tessalyd {

/// The objects that a retrieval sends, counted, and what its answers say of them. Belongs to one thread; what
/// comes from others is copied.
class SubOperations {
  public:
    explicit SubOperations(std::size_t total) : remaining_(total) {}

    void complete() { count(completed_); }
    void warn() { count(warned_); }
    /// Without a UID where it cannot be had.
    void fail(const std::string& sopInstanceUid = {});

    [[nodiscard]] std::size_t remaining() const noexcept { return remaining_; }
    [[nodiscard]] std::size_t sent() const noexcept { return completed_ + warned_; }
    [[nodiscard]] std::size_t failed() const noexcept { return failed_; }

    /// Of the final response.
    [[nodiscard]] std::uint16_t finalStatus(bool cancelled) const noexcept;

    /// The response to a C-GET or C-MOVE with this status and the counters that go with it. The counters have
    /// 16 bits on the wire and stay at 65,535 beyond.
    [[nodiscard]] dicom::Command response(const dicom::Command& request, std::uint16_t status) const;
    /// What goes with the final response; nothing when all is well.
    [[nodiscard]] std::optional<DcmDataset> failures() const;

  private:
    void count(std::size_t& counter) {
        ++counter;
        --remaining_;
    }

    std::size_t remaining_;
    std::size_t completed_ = 0;
    std::size_t warned_ = 0;
    std::size_t failed_ = 0;
    std::string failedUids_;  // as the attribute has them
};

/// When a retrieval tells how far it is: once a second, first after a second; what is late is not made up
/// for.
class PendingPace {
  public:
    using Clock = std::chrono::steady_clock;

    explicit PendingPace(Clock::time_point start) : next_(start + Interval) {}

    /// True once for each second that has gone by; several at a time count as one.
    [[nodiscard]] bool isDue(Clock::time_point now);

  private:
    static constexpr std::chrono::seconds Interval{1};
    Clock::time_point next_;
};

}  // namespace tessaly::tessalyd
