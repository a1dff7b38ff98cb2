#include "tessalyd/services/commitment/CommitmentCheck.h"

#include <sys/stat.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "archive/Location.h"
#include "archive/StoredPath.h"
#include "db/Error.h"
#include "dicom/data/ObjectHeader.h"
#include "tessalyd/Log.h"
#include "tessalyd/search/StoredObject.h"

namespace tessaly::tessalyd {

namespace {

/// A session is held for so many look-ups; others wait no longer than these take.
constexpr std::size_t BatchSize = 200;

struct Row {
    std::string sopClass;
    std::string series;
    std::string study;
    archive::Location location;
    std::optional<long long> fileSize;
};

constexpr const char* Statement =
    "SELECT Image.SOPClassUID, Image.FileSize, Image.ImageFile, Series.SeriesInstanceUID, Series.SeriesDir, "
    "Study.StudyInstanceUID, Study.StudyPath FROM Image, Series, Study WHERE Image.SOPInstanceUID=? "
    "AND Series.SeriesInstanceUID=Image.SeriesInstanceUID "
    "AND Study.StudyInstanceUID=Series.StudyInstanceUID";

Row readRow(db::ResultSet& row) {
    Row read{.sopClass = row.text("SOPClassUID"),
             .series = row.text("SeriesInstanceUID"),
             .study = row.text("StudyInstanceUID"),
             .location = {row.text("StudyPath"), row.text("SeriesDir"), row.text("ImageFile")},
             .fileSize = std::nullopt};
    if (!row.isNull("FileSize"))
        read.fileSize = row.integer("FileSize");
    return read;
}

bool hasSize(int file, long long size) {
    struct stat found {};
    return ::fstat(file, &found) == 0 && found.st_size == size;
}

}  // namespace

struct CommitmentCheck::Found {
    Reference reference;
    std::optional<Row> row;
};

void CommitmentCheck::run(CommitmentList& list,
                          const std::function<void(const Reference&, FailureReason)>& result) {
    for (bool isLast = false; !isLast;) {
        std::vector<Reference> batch;
        while (batch.size() < BatchSize && !isLast) {
            if (auto reference = list.next())
                batch.push_back(std::move(*reference));
            else
                isLast = true;
        }
        for (const Found& found : lookUp(std::move(batch))) {
            if (stop_.stop_requested())
                throw db::Stopped{};
            result(found.reference, check(found));
        }
    }
}

std::vector<CommitmentCheck::Found> CommitmentCheck::lookUp(std::vector<Reference> references) {
    std::vector<Found> found;
    const auto lease = shared_.sessions.take([this] { return stop_.stop_requested(); });
    if (!lease)
        throw db::Stopped{};
    db::Query query = lease->statements().take(Statement);
    query.setStop([this] { return stop_.stop_requested(); });
    for (Reference& reference : references) {
        query.bind(1, db::varchar(reference.sopInstance));
        db::ResultSet rows = query.open();
        found.push_back({.reference = std::move(reference), .row = std::nullopt});
        if (rows.next())
            found.back().row = readRow(rows);
    }
    query.setStop({});
    lease->statements().give(Statement, std::move(query));
    return found;
}

FailureReason CommitmentCheck::check(const Found& found) {
    if (!found.row)
        return NoSuchObject;
    const Row& row = *found.row;
    const std::string study = archive::localPath(row.location.studyPath);
    try {
        StoredObject object{{.sopClassUid = row.sopClass,
                             .sopInstanceUid = found.reference.sopInstance,
                             .transferSyntaxUid = {},
                             .file = archive::localPath(row.location.path()),
                             .root = rootOf(study)}};
        if (row.fileSize && !hasSize(object.descriptor(), *row.fileSize))
            throw std::runtime_error{"the file has not the size that was stored"};
        const dicom::ObjectHeader header = dicom::readHeader(object);
        if (header.sopInstanceUid != found.reference.sopInstance || header.seriesInstanceUid != row.series ||
            header.studyInstanceUid != row.study || header.sopClassUid != object.kind().sopClass)
            throw std::runtime_error{"the file has other UIDs than its row"};
        const bool isOfClass = header.sopClassUid == found.reference.sopClass &&
                               (row.sopClass.empty() || row.sopClass == found.reference.sopClass);
        return isOfClass ? Committed : ClassInstanceConflict;
    } catch (const std::runtime_error& fault) {
        // A disk that is not mounted is no lost object.
        shared_.index.requireRoot(row.location.studyPath);
        OFLOG_DEBUG(serverLog(), "not committed: " << fault.what());
        return NoSuchObject;
    }
}

}  // namespace tessaly::tessalyd
