#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "archive/Location.h"
#include "db/Connection.h"
#include "db/DatabaseFile.h"
#include "db/Query.h"
#include "db/dialects/Dialect.h"
#include "tessalyd/store/IncomingHeader.h"

namespace tessaly::tessalyd {

/// What a store does while its rows are written, in their transaction. Faults come through.
struct StoreSteps {
    /// After the object's rows: other rows that are to be there exactly when these are, a job for example.
    /// Called again when the transaction is tried again, over whatever connection that is then.
    std::function<void(const db::Connection&)> writeRows = [](const db::Connection&) {};
    /// Last before the commit: the object's file gets its name. Called again likewise.
    std::function<void()> publish = [] {};
    /// Before publish, and again likewise: where the same instance has lain so far, if that is elsewhere.
    std::function<void(const std::optional<archive::Location>&)> leave =
        [](const std::optional<archive::Location>& /*former*/) {};
};

/// The rows of one object that is to lie at `location`; all that it refers to outlives the writing.
struct ObjectRows {
    const ObjectHeader& header;
    const archive::Location& location;
    const StoreSteps& steps;
    std::exception_ptr fault = {};  ///< why they are not written
};

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

    /// Writes the rows of an object, in one transaction. Throws db::Conflict where all of it may be tried
    /// again, Displaced where the tables have another folder by now, and StoreUndecided where
    /// the database's file lost its place in the commit.
    void record(const ObjectHeader& header, const archive::Location& location, const StoreSteps& steps = {});
    /// The same for several objects, all of different instances, in one transaction: the rows of all are
    /// written or of none. A fault of one of the objects, or of one of its steps, is kept with it too: it
    /// would come again, and so would none of the others.
    void record(std::span<ObjectRows* const> objects);

    /// A study is known whose folder lies in this one, as the tables write it.
    [[nodiscard]] bool hasStudiesIn(const std::string& root);

    /// As for db::Connection.
    [[nodiscard]] bool isInPlace() const { return db::isInPlace(connection_); }
    [[nodiscard]] bool supportsConcurrentWriters() const {
        return connection_.dialect().supportsConcurrentWriters();
    }

  private:
    struct ImageRow {
        std::string series;
        std::string file;
    };
    void writeRows(const ObjectRows& object);
    [[nodiscard]] bool ownersAreAsTheyShouldBe(const ObjectHeader& header, const archive::Location& location);
    [[nodiscard]] std::optional<ImageRow> recordImage(const ObjectHeader& header, const std::string& file);
    [[nodiscard]] std::optional<ImageRow> image(const std::string& sopInstanceUid);
    [[nodiscard]] std::optional<archive::Location> locationOf(const ImageRow& image);
    [[nodiscard]] long long recordPatient(const ObjectHeader& header);
    [[nodiscard]] std::optional<long long> addPatient(const ObjectHeader& header);
    void recordStudy(const ObjectHeader& header, long long patient, const std::string& studyPath);
    void recordSeries(const ObjectHeader& header, const std::string& seriesDir);

    db::Connection connection_;
    struct Statements {
        explicit Statements(const db::Connection& connection);
        db::Query owners;
        db::Query patient, keepPatient, lastPatient, addPatient, updatePatient;
        db::Query study, keepStudy, addStudy, updateStudy;
        db::Query series, addSeries, updateSeries;
        db::Query image, addImage, updateImage, moveImage, folders, imageFolder;
    };
    std::optional<Statements> run_;
};

}  // namespace tessaly::tessalyd
