#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace tessaly::tessalyd {

/// Why a query or a retrieval is refused. what() is the error comment, 64 characters at most.
class QueryRefusal : public std::runtime_error {
  public:
    QueryRefusal(Uint16 status, const std::string& comment, std::optional<DcmTagKey> offending = {})
        : std::runtime_error(comment), status_(status), offending_(std::move(offending)) {}

    /// The DIMSE status.
    [[nodiscard]] Uint16 status() const noexcept { return status_; }
    /// For the answer's Offending Element; nothing when none is to blame.
    [[nodiscard]] const std::optional<DcmTagKey>& offending() const noexcept { return offending_; }

  private:
    Uint16 status_;
    std::optional<DcmTagKey> offending_;
};

}  // namespace tessaly::tessalyd
