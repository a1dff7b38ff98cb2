#include "tessalyd/store/ArchiveIndex.h"

#include "db/Retrying.h"
#include "tessalyd/store/StoreFailure.h"

namespace tessaly::tessalyd {

void ArchiveIndex::configure(std::chrono::seconds wait, std::size_t stores) {
    sessions_.configure(wait, stores);
    known_.clear();
}

void ArchiveIndex::close() {
    sessions_.close();
    known_.clear();
}

void ArchiveIndex::suspend() {
    sessions_.suspend();
    known_.clear();
}

/// Runs `work` on a session, anew where that may help; a db::Error becomes a StoreFailure.
template <class Work>
auto ArchiveIndex::withSession(Work work) {
    bool undecided = false;
    const auto attempt = [&] {
        auto session = open();
        try {
            return work(*session);
        } catch (const db::Conflict&) {
            throw;
        } catch (const db::Error& error) {
            undecided = undecided || dynamic_cast<const db::OutcomeUnknown*>(&error) != nullptr;
            session.discard();
            throw;
        }
    };
    try {
        try {
            return db::retrying(attempt, [this] { sessions_.close(); });
        } catch (const db::Error& error) {
            throw databaseRefused(error.what());
        }
    } catch (const StoreFailure& failure) {
        if (undecided)
            throw StoreUndecided{failure};
        throw;
    }
}

/// What cannot be opened now is not tried a second time: the fault is none that retrying() knows.
ArchiveSessions::Lease ArchiveIndex::open() {
    try {
        return sessions_.take();
    } catch (const db::Error& error) {
        throw databaseRefused(error.what());
    }
}

std::unique_ptr<ArchiveIndex::Placement> ArchiveIndex::place(const ObjectHeader& header,
                                                             const std::string& root, Folders folders) {
    const std::string& study = header.studyInstanceUid;
    // Before the look-up: another store's reservation is seen, or else its rows are.
    auto placement = std::make_unique<Placement>(*this, study);
    std::optional<ArchiveSession::Folders> known;
    if (folders == Folders::Remembered)
        known = known_.find(header);
    const bool isRemembered = known.has_value();
    if (!known)
        known = withSession([&](ArchiveSession& session) { return session.folders(header); });
    placement->location_ = {
        .studyPath = settle(study, known->studyPath, root + '\\' + study),
        .seriesDir = known->seriesDir.value_or(header.seriesInstanceUid),
        .imageFile = header.sopInstanceUid + ".dcm",
    };
    try {
        requireRoot(placement->location_.studyPath);
    } catch (const RootUnavailable&) {
        if (!isRemembered)
            throw;
        return place(header, root, Folders::LookedUp);  // the study may have been relocated
    }
    return placement;
}

void ArchiveIndex::requireRoot(const std::string& studyPath) {
    // That of the tables: after a relocation it is none of the ports'.
    const std::size_t cut = studyPath.find_last_of("\\/");
    if (cut == std::string::npos)
        return;
    std::string root = studyPath.substr(0, cut);
    while (root.ends_with('\\') || root.ends_with('/'))
        root.pop_back();
    const bool isAvailable = roots_.isAvailable(root, studyPath.substr(cut + 1), [this, &root] {
        return withSession([&root](ArchiveSession& session) { return session.hasStudiesIn(root); });
    });
    if (!isAvailable)
        throw RootUnavailable{};
}

std::unique_lock<std::mutex> ArchiveIndex::claim(const std::string& sopInstanceUid) {
    return std::unique_lock{claims_[std::hash<std::string>{}(sopInstanceUid) % claims_.size()]};
}

void ArchiveIndex::record(const ObjectHeader& header, const archive::Location& location,
                          const StoreSteps& steps) {
    try {
        if (writesInTurn()) {
            ObjectRows rows{.header = header, .location = location, .steps = steps};
            const auto writeAll = [this](std::span<ObjectRows* const> group) { write(group); };
            if (!groups_.run(rows, sessions_.patience(), writeAll))
                throw othersAreWaiting();
            if (rows.fault)
                std::rethrow_exception(rows.fault);
        } else {
            withSession([&](ArchiveSession& session) { session.record(header, location, steps); });
        }
    } catch (...) {
        known_.forget(header);
        throw;
    }
    known_.remember(header, location);
}

void ArchiveIndex::write(std::span<ObjectRows* const> group) {
    const auto until = std::chrono::steady_clock::now() + sessions_.patience();
    std::vector<ObjectRows*> left{group.begin(), group.end()};
    while (!left.empty()) {
        const std::exception_ptr fault = writeTogether(left);
        if (!fault)
            return;
        const auto isFaulty = [](const ObjectRows* rows) { return rows->fault != nullptr; };
        if (std::erase_if(left, isFaulty) == 0)  // it is not said whose fault it was
            return writeOneByOne(left, until, fault);
    }
}

/// Writes all or none; returns what was in the way.
std::exception_ptr ArchiveIndex::writeTogether(std::span<ObjectRows* const> group) {
    try {
        withSession([group](ArchiveSession& session) { session.record(group); });
        return nullptr;
    } catch (const StoreUndecided&) {  // whatever is found out now, they may be written already
        for (ObjectRows* rows : group)
            rows->fault = std::current_exception();
        return std::current_exception();
    } catch (...) {
        return std::current_exception();
    }
}

/// What the engine refuses for one object is not to keep the others away; what it refuses for all is not
/// waited for again and again.
void ArchiveIndex::writeOneByOne(std::span<ObjectRows* const> group,
                                 std::chrono::steady_clock::time_point until,
                                 const std::exception_ptr& late) {
    for (ObjectRows* rows : group) {
        if (group.size() == 1 || std::chrono::steady_clock::now() >= until) {
            rows->fault = late;
            continue;
        }
        try {
            withSession([rows](ArchiveSession& session) { session.record({&rows, 1}); });
        } catch (...) {
            rows->fault = std::current_exception();
        }
    }
}

std::string ArchiveIndex::settle(const std::string& study, const std::optional<std::string>& known,
                                 std::string otherwise) {
    const std::lock_guard lock{reservationsMutex_};
    std::string& path = reservations_[study].studyPath;
    if (known)  // by a store of another server perhaps: it was first
        path = *known;
    else if (path.empty())
        path = std::move(otherwise);
    return path;
}

ArchiveIndex::Placement::Placement(ArchiveIndex& index, std::string study)
    : index_(index), study_(std::move(study)) {
    const std::lock_guard lock{index_.reservationsMutex_};
    ++index_.reservations_[study_].users;
}

ArchiveIndex::Placement::~Placement() {
    const std::lock_guard lock{index_.reservationsMutex_};
    if (const auto found = index_.reservations_.find(study_); --found->second.users == 0)
        index_.reservations_.erase(found);
}

}  // namespace tessaly::tessalyd
