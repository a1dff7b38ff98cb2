#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctypes.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace tessaly::tessalyd {

/// Why an object is not stored. what() goes to the sender as the error comment, 64 characters at most, and
/// into the log: it tells nothing of a patient.
class StoreFailure : public std::runtime_error {
  public:
    StoreFailure(Uint16 status, const std::string& comment, std::string detail = {})
        : std::runtime_error(comment), status_(status), detail_(std::move(detail)) {}

    /// The DIMSE status.
    [[nodiscard]] Uint16 status() const noexcept { return status_; }
    /// For the log alone: paths, an engine's own words.
    [[nodiscard]] const std::string& detail() const noexcept { return detail_; }

  private:
    Uint16 status_;
    std::string detail_;
};

}  // namespace tessaly::tessalyd
