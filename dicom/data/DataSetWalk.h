#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <span>

#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::dicom {

/// True when sequences lie within each other so deep that the DICOM toolkit cannot be given the data set: its
/// parser calls itself for each of them, and a peer could exhaust the stack. Stops at the first element that
/// is `end` or behind it; what is cut off does not matter. Where the bytes can be understood in several ways,
/// the deepest one counts.
[[nodiscard]] bool exceedsNestingLimit(std::span<const char> dataSet, TransferSyntax syntax,
                                       const DcmTagKey& end = DcmTagKey{0xffff, 0xffff});

/// Tells a data set that is cut off from a whole one while it arrives, in constant memory.
class TruncationCheck {
  public:
    explicit TruncationCheck(TransferSyntax syntax);
    ~TruncationCheck();
    TruncationCheck(const TruncationCheck&) = delete;
    TruncationCheck& operator=(const TruncationCheck&) = delete;

    /// The next bytes.
    void take(std::span<const char> bytes);
    /// When all bytes have been taken: true when a value is longer than what is there of it, or a head is
    /// there in part. What is merely not ended, as some devices leave the last sequence, or is filled up with
    /// zeros, is whole. False as well for what is nested deeper than can be followed, and for what is
    /// deflated: how long that is shows only when all of it is inflated.
    [[nodiscard]] bool isTruncated() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

/// The same of a data set that is there already.
[[nodiscard]] bool isTruncated(std::span<const char> dataSet, TransferSyntax syntax);
/// The same of a data set that is not in memory: `byteAt` is asked for hardly more than the elements' heads,
/// and what it throws is passed on.
[[nodiscard]] bool isTruncated(const std::function<char(std::size_t)>& byteAt, std::size_t size,
                               TransferSyntax syntax);

}  // namespace tessaly::dicom
