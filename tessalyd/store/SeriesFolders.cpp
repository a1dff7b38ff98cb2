#include "tessalyd/store/SeriesFolders.h"

namespace tessaly::tessalyd {

std::optional<ArchiveSession::Folders> SeriesFolders::find(const ObjectHeader& header) const {
    const std::lock_guard lock{mutex_};
    const auto found = series_.find(header.seriesInstanceUid);
    if (found == series_.end() || found->second.study != header.studyInstanceUid)
        return std::nullopt;
    return ArchiveSession::Folders{.studyPath = found->second.studyPath,
                                   .seriesDir = found->second.seriesDir};
}

void SeriesFolders::remember(const ObjectHeader& header, const archive::Location& location) {
    const std::lock_guard lock{mutex_};
    if (series_.size() >= MostSeries && !series_.contains(header.seriesInstanceUid))
        series_.clear();  // those that are still coming are soon there again
    Series& series = series_[header.seriesInstanceUid];
    if (series.study == header.studyInstanceUid && series.studyPath == location.studyPath &&
        series.seriesDir == location.seriesDir)
        return;
    series = {
        .study = header.studyInstanceUid, .studyPath = location.studyPath, .seriesDir = location.seriesDir};
}

void SeriesFolders::forget(const ObjectHeader& header) {
    const std::lock_guard lock{mutex_};
    series_.erase(header.seriesInstanceUid);
}

void SeriesFolders::clear() {
    const std::lock_guard lock{mutex_};
    series_.clear();
}

}  // namespace tessaly::tessalyd
