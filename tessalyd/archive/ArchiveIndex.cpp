#include "tessalyd/archive/ArchiveIndex.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dimse.h>

#include <functional>

#include "db/Error.h"
#include "tessalyd/archive/ArchiveSession.h"
#include "tessalyd/archive/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

constexpr std::chrono::seconds UsualWait{5};

StoreFailure refused(const char* detail) {
    return {STATUS_STORE_Refused_OutOfResources, "The database takes no object now", detail};
}

}  // namespace

class ArchiveIndex::Turn {
  public:
    explicit Turn(ArchiveIndex& index) : index_(index) {
        const std::chrono::seconds wait = index.wait_;
        std::unique_lock lock{index_.mutex_};
        if (!index_.given_.wait_for(lock, wait > std::chrono::seconds::zero() ? wait : UsualWait,
                                    [this] { return !index_.taken_; }))
            throw refused("other stores are waiting for it");
        index_.taken_ = true;
    }
    ~Turn() {
        {
            const std::lock_guard lock{index_.mutex_};
            index_.taken_ = false;
        }
        index_.given_.notify_one();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

  private:
    ArchiveIndex& index_;
};

ArchiveIndex::ArchiveIndex() = default;
ArchiveIndex::~ArchiveIndex() = default;

void ArchiveIndex::setWait(std::chrono::seconds wait) {
    wait_ = wait;
    waitChanged_ = true;
}

void ArchiveIndex::close() {
    session_.reset();
}

/// Runs `work` on the session when it is this thread's turn; a db::Error becomes a StoreFailure.
template <class Work>
auto ArchiveIndex::withSession(Work work) {
    const Turn turn{*this};
    try {
        if (waitChanged_.exchange(false) || !session_)
            session_ = std::make_unique<ArchiveSession>(wait_);
        return work(*session_);
    } catch (const db::Error& error) {
        session_.reset();  // the next store gets a new connection: this one may be what is broken
        throw refused(error.what());
    }
}

std::unique_ptr<ArchiveIndex::Placement> ArchiveIndex::place(const ObjectHeader& header,
                                                             const std::string& root) {
    return withSession([&](ArchiveSession& session) {
        const ArchiveSession::Folders known = session.folders(header);
        ArchiveLocation location{
            .studyPath = known.studyPath.value_or(root + '\\' + header.studyInstanceUid),
            .seriesDir = known.seriesDir.value_or(header.seriesInstanceUid),
            .imageFile = header.sopInstanceUid + ".dcm",
        };
        // In the same turn as the look-up: rows that another store writes are seen, or its reservation is.
        location.studyPath = reserve(header.studyInstanceUid, std::move(location.studyPath));
        return std::make_unique<Placement>(*this, header.studyInstanceUid, std::move(location));
    });
}

std::unique_lock<std::mutex> ArchiveIndex::claim(const std::string& sopInstanceUid) {
    return std::unique_lock{claims_[std::hash<std::string>{}(sopInstanceUid) % claims_.size()]};
}

std::optional<ArchiveLocation> ArchiveIndex::record(const ObjectHeader& header,
                                                    const ArchiveLocation& location) {
    return withSession([&](ArchiveSession& session) { return session.record(header, location); });
}

std::string ArchiveIndex::reserve(const std::string& study, std::string studyPath) {
    const std::lock_guard lock{reservationsMutex_};
    Reservation& reservation = reservations_[study];
    if (reservation.users++ == 0)
        reservation.studyPath = std::move(studyPath);
    return reservation.studyPath;
}

void ArchiveIndex::release(const std::string& study) noexcept {
    const std::lock_guard lock{reservationsMutex_};
    if (const auto found = reservations_.find(study); --found->second.users == 0)
        reservations_.erase(found);
}

ArchiveIndex::Placement::Placement(ArchiveIndex& index, std::string study, ArchiveLocation location)
    : index_(index), study_(std::move(study)), location_(std::move(location)) {}

ArchiveIndex::Placement::~Placement() {
    index_.release(study_);
}

}  // namespace tessaly::tessalyd
