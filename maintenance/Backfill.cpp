#include "maintenance/Backfill.h"

#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "archive/Location.h"
#include "archive/StoredPath.h"
#include "db/Query.h"
#include "db/Transaction.h"
#include "dicom/data/NameFolding.h"
#include "dicom/data/ObjectHeader.h"
#include "schema/HeaderColumns.h"
#include "schema/BackfillMark.h"

namespace tessaly::maintenance {

namespace {

using db::integer;
using db::varchar;
using dicom::ObjectHeader;

/// So few that nobody who stores waits for a batch to be written.
constexpr long long BatchSize = 200;

/// An image whose row, or a row above it, lacks something.
struct Image {
    std::string instance;
    std::string series;
    std::string study;
    std::string file;
    bool lacks = false;
    bool seriesLacks = false;
    bool studyLacks = false;
};

std::string updateOf(std::string_view table, std::span<const schema::HeaderColumn> columns,
                     std::string_view key) {
    return "UPDATE " + std::string{table} + " SET " + schema::fillingsOf(columns) + " WHERE " +
           std::string{key} + "=? AND (" + schema::lackOf(columns, table) + ")";
}

std::string flagOf(const std::string& condition, std::string_view name) {
    return "CASE WHEN " + condition + " THEN 1 ELSE 0 END AS " + std::string{name};
}

std::string pageOfImages() {
    return "SELECT Image.SOPInstanceUID AS Instance, Image.SeriesInstanceUID AS Series, "
           "Series.StudyInstanceUID AS Study, StudyPath, SeriesDir, ImageFile, " +
           flagOf(schema::lackOf(schema::imageColumns(), "Image"), "ImageLacks") + ", " +
           flagOf(schema::lackOf(schema::seriesColumns(), "Series"), "SeriesLacks") + ", " +
           flagOf(schema::lackOf(schema::studyColumns(), "Study"), "StudyLacks") +
           " FROM Image LEFT JOIN Series ON Series.SeriesInstanceUID=Image.SeriesInstanceUID "
           "LEFT JOIN Study ON Study.StudyInstanceUID=Series.StudyInstanceUID "
           "WHERE Image.SOPInstanceUID>? ORDER BY Image.SOPInstanceUID LIMIT ?";
}

class Filling {
  public:
    Filling(const db::Connection& connection, Progress& progress)
        : connection_(connection),
          progress_(progress),
          patients_{connection,
                    "SELECT ID, Name FROM Patient WHERE NameAlphabetic IS NULL AND ID>? ORDER BY ID LIMIT ?"},
          images_{connection, pageOfImages()},
          updatePatient_{connection,
                         "UPDATE Patient SET NameAlphabetic=?, NameIdeographic=?, NamePhonetic=? "
                         "WHERE ID=? AND NameAlphabetic IS NULL AND COALESCE(Name,'')=?"},
          updateImage_{connection, updateOf("Image", schema::imageColumns(), "SOPInstanceUID")},
          updateSeries_{connection, updateOf("Series", schema::seriesColumns(), "SeriesInstanceUID")},
          updateStudy_{connection, updateOf("Study", schema::studyColumns(), "StudyInstanceUID")} {}

    Backfill::Result run(std::string from) {
        filled_.isStopped = !countImages(from) || !fillPatients() || !fillAllImages(from);
        if (!filled_.isStopped && filled_.seesArchive())
            schema::setFilledTo(connection_, std::nullopt);
        return filled_;
    }

  private:
    /// After each step: false where that was the last.
    [[nodiscard]] bool goesOn() {
        progress_.breathe();
        if (progress_.isStopRequested())
            return false;
        progress_.setDone(done_);
        return true;
    }

    [[nodiscard]] bool countImages(const std::string& from) {
        db::Query query{connection_,
                        "SELECT COUNT(*) AS Whole, SUM(CASE WHEN SOPInstanceUID>? THEN 0 ELSE 1 END) AS Done "
                        "FROM Image"};
        auto row = query.bind(1, varchar(from)).open();
        if (!row.next())
            return true;
        done_ = row.isNull("Done") ? 0 : row.integer("Done");
        progress_.setTotal(row.integer("Whole"));
        return goesOn();
    }

    [[nodiscard]] bool fillPatients() {
        for (std::optional last{std::numeric_limits<long long>::min()}; last;) {
            std::vector<std::pair<long long, std::string>> batch;
            patients_.bindAll({integer(*last), integer(BatchSize)});
            for (auto rows = patients_.open(); rows.next();)
                batch.emplace_back(rows.integer("ID"), rows.text("Name"));
            last = batch.empty() ? std::nullopt : std::optional{batch.back().first};
            if (!last)
                break;
            db::Transaction transaction{connection_};
            for (const auto& [id, name] : batch) {
                const auto groups = dicom::foldedGroups(name);
                filled_.patients += updatePatient_
                                        .bindAll({varchar(groups[0]), varchar(groups[1]), varchar(groups[2]),
                                                  integer(id), varchar(name)})
                                        .execute();
            }
            transaction.commit();
            if (!goesOn())
                return false;
        }
        return true;
    }

    [[nodiscard]] bool fillAllImages(std::string& from) {
        while (fillImages(from))
            if (!goesOn())
                return false;
        return true;
    }

    /// The next batch; false when there is none. Goes `from` that instance on, and leaves the next there.
    bool fillImages(std::string& from) {
        std::vector<Image> batch;
        long long rowsSeen = 0;
        images_.bindAll({varchar(from), integer(BatchSize)});
        for (auto rows = images_.open(); rows.next(); ++rowsSeen) {
            from = rows.text("Instance");
            if (!rows.flag("ImageLacks") && !rows.flag("SeriesLacks") && !rows.flag("StudyLacks"))
                continue;
            batch.push_back({.instance = from,
                             .series = rows.text("Series"),
                             .study = rows.text("Study"),
                             .file = archive::localPath(archive::Location{
                                 rows.text("StudyPath"), rows.text("SeriesDir"), rows.text("ImageFile")}
                                                            .path()),
                             .lacks = rows.flag("ImageLacks"),
                             .seriesLacks = rows.flag("SeriesLacks"),
                             .studyLacks = rows.flag("StudyLacks")});
        }
        if (rowsSeen == 0)
            return false;
        write(read(batch), from);
        done_ += rowsSeen;
        return true;
    }

    using Headers = std::map<std::string, ObjectHeader>;
    struct Values {
        Headers images;
        Headers studies;
        Headers series;
    };

    /// Before the transaction: files may be slow.
    Values read(const std::vector<Image>& batch) {
        Values values;
        for (const Image& image : batch) {
            const bool forSeries = image.seriesLacks && !values.series.contains(image.series);
            const bool forStudy = image.studyLacks && !values.studies.contains(image.study);
            if (!image.lacks && !forSeries && !forStudy)
                continue;
            try {
                ObjectHeader header = dicom::readHeader(std::filesystem::path{image.file});
                ++filled_.readable;
                if (header.sopInstanceUid != image.instance)
                    throw std::runtime_error(image.file + ": the file is another object's");
                if (forSeries && header.seriesInstanceUid == image.series)
                    values.series.emplace(image.series, header);
                if (forStudy && header.studyInstanceUid == image.study)
                    values.studies.emplace(image.study, header);
                if (image.lacks)
                    values.images.emplace(image.instance, std::move(header));
            } catch (const std::runtime_error& error) {
                ++filled_.unreadable;
                progress_.note(error.what());
            }
        }
        return values;
    }

    /// In the order in which a server writes an object's rows: neither waits for the other in a circle.
    void write(const Values& values, const std::string& to) {
        db::Transaction transaction{connection_};
        filled_.images += update(updateImage_, schema::imageColumns(), values.images);
        update(updateStudy_, schema::studyColumns(), values.studies);
        update(updateSeries_, schema::seriesColumns(), values.series);
        if (filled_.seesArchive())
            schema::setFilledTo(connection_, to);
        transaction.commit();
    }

    static long long update(db::Query& query, std::span<const schema::HeaderColumn> columns,
                            const Headers& headers) {
        long long rows = 0;
        for (const auto& [key, header] : headers)
            rows += query.bindAll(schema::valuesOf(columns, header, {varchar(key)})).execute();
        return rows;
    }

    const db::Connection& connection_;
    Progress& progress_;
    db::Query patients_, images_;
    db::Query updatePatient_, updateImage_, updateSeries_, updateStudy_;
    long long done_ = 0;
    Backfill::Result filled_;
};

}  // namespace

void Backfill::run(const db::Connection& connection, Progress& progress) {
    result_ = {};
    if (auto from = schema::filledTo(connection))
        result_ = Filling{connection, progress}.run(std::move(*from));
}

}  // namespace tessaly::maintenance
