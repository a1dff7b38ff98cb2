#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dimse.h>

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
    /// For the log alone: a root, an engine's own words. It has no study or series UID.
    [[nodiscard]] const std::string& detail() const noexcept { return detail_; }

  private:
    Uint16 status_;
    std::string detail_;
};

/// The database failed, in the engine's own words: the first line of them, as the others may quote the row.
[[nodiscard]] inline StoreFailure databaseRefused(const std::string& detail) {
    return {STATUS_STORE_Refused_OutOfResources, "The database takes no object now",
            detail.substr(0, detail.find('\n'))};
}

/// So many stores write, or an engine takes so long, that this one's turn did not come.
[[nodiscard]] inline StoreFailure othersAreWaiting() {
    return databaseRefused("other stores are waiting for it");
}

/// The database's file was removed or replaced under the session: what it writes would be lost.
[[nodiscard]] inline StoreFailure databaseMoved() {
    return databaseRefused("its file is not in its place");
}

/// The root is not the archive's as things are. The log has one line for all objects that are refused for it.
class RootUnavailable : public StoreFailure {
  public:
    RootUnavailable()
        : StoreFailure(STATUS_STORE_Refused_OutOfResources, "The archive's root is not available now") {}
};

/// The study or the series got another folder since the object was placed: it may be placed again.
class Displaced : public StoreFailure {
  public:
    explicit Displaced(const std::string& comment)
        : StoreFailure(STATUS_STORE_Refused_OutOfResources, comment) {}
};

/// The connection broke, or the database's file lost its place, in the midst of the commit: the tables may
/// have the object or not.
class StoreUndecided : public StoreFailure {
  public:
    explicit StoreUndecided(const StoreFailure& failure) : StoreFailure(failure) {}
};

}  // namespace tessaly::tessalyd
