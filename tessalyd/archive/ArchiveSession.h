#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "db/Query.h"
#include "tessalyd/archive/ArchiveLocation.h"
#include "tessalyd/archive/ObjectHeader.h"

namespace tessaly::tessalyd {

/// The archive's tables over one connection, with statements that are prepared once. Belongs to one thread at
/// a time. Every operation throws db::Error, or StoreFailure where the rows say that the object cannot be
/// stored.
class ArchiveSession {
  public:
    /// Connects. `wait` is how long a statement waits for another process's lock; zero leaves that to the
    /// data source.
    explicit ArchiveSession(std::chrono::seconds wait);

    /// The folders that the tables have for a study and a series already.
    struct Folders {
        std::optional<std::string> studyPath;
        std::optional<std::string> seriesDir;
    };
    [[nodiscard]] Folders folders(const ObjectHeader& header);

    /// As ArchiveIndex::record().
    [[nodiscard]] std::optional<ArchiveLocation> record(const ObjectHeader& header,
                                                        const ArchiveLocation& location);

  private:
    struct ImageRow {
        std::string series;
        std::string file;
    };
    [[nodiscard]] std::optional<ImageRow> image(const std::string& sopInstanceUid);
    [[nodiscard]] std::optional<ArchiveLocation> locationOf(const ImageRow& image);
    [[nodiscard]] long long recordPatient(const ObjectHeader& header);
    [[nodiscard]] long long addPatient(const ObjectHeader& header);
    void recordStudy(const ObjectHeader& header, long long patient, const std::string& studyPath);
    void recordSeries(const ObjectHeader& header, const std::string& seriesDir);

    db::Connection connection_;
    struct Statements {
        explicit Statements(const db::Connection& connection);
        db::Query patient, lastPatient, addPatient, updatePatient;
        db::Query study, addStudy, updateStudy;
        db::Query series, addSeries, updateSeries;
        db::Query image, addImage, updateImage, moveImage, imageFolder;
    };
    std::optional<Statements> run_;
};

}  // namespace tessaly::tessalyd
