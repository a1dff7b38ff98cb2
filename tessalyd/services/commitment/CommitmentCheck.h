#pragma once

#include <cstdint>
#include <functional>
#include <stop_token>
#include <vector>

#include "tessalyd/services/ServiceContext.h"
#include "tessalyd/services/commitment/CommitmentList.h"

namespace tessaly::tessalyd {

/// Why storage is not committed (PS3.4 J.3.3.1.1.2); 0: it is.
using FailureReason = std::uint16_t;
constexpr FailureReason Committed = 0;
constexpr FailureReason NoSuchObject = 0x0112;
constexpr FailureReason ClassInstanceConflict = 0x0119;
constexpr FailureReason DuplicateTransaction = 0x0131;

/// Looks whether the archive has an object safely: its row is there, its file can be read, has the size that
/// was stored, as far as the row knows it, and its header has the same UIDs. Belongs to one thread.
class CommitmentCheck {
  public:
    /// The context outlives it.
    CommitmentCheck(ServiceContext& shared, std::stop_token stop) : shared_(shared), stop_(std::move(stop)) {}

    /// Each reference with what holds of it, in the list's order. Throws db::Error and StoreFailure where it
    /// cannot be told now, and db::Stopped.
    void run(CommitmentList& list, const std::function<void(const Reference&, FailureReason)>& result);

  private:
    struct Found;
    [[nodiscard]] std::vector<Found> lookUp(std::vector<Reference> references);
    [[nodiscard]] FailureReason check(const Found& found);

    ServiceContext& shared_;
    std::stop_token stop_;
};

}  // namespace tessaly::tessalyd
