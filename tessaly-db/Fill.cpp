#include "tessaly-db/Fill.h"

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
#include "schema/OlderRows.h"

namespace tessaly::tool {

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
    Filling(const db::Connection& connection, const FillEvents& events)
        : connection_(connection),
          events_(events),
          patients_{connection,
                    "SELECT ID, Name FROM Patient WHERE NameAlphabetic IS NULL AND ID>? ORDER BY ID LIMIT ?"},
          images_{connection, pageOfImages()},
          updatePatient_{connection,
                         "UPDATE Patient SET NameAlphabetic=?, NameIdeographic=?, NamePhonetic=? "
                         "WHERE ID=? AND NameAlphabetic IS NULL AND COALESCE(Name,'')=?"},
          updateImage_{connection, updateOf("Image", schema::imageColumns(), "SOPInstanceUID")},
          updateSeries_{connection, updateOf("Series", schema::seriesColumns(), "SeriesInstanceUID")},
          updateStudy_{connection, updateOf("Study", schema::studyColumns(), "StudyInstanceUID")} {}

    Filled run(std::string from) {
        countImages(from);
        fillPatients();
        while (fillImages(from))
            events_.goesOn(done_);
        if (filled_.seesArchive())
            schema::setFilledTo(connection_, std::nullopt);
        return filled_;
    }

  private:
    void countImages(const std::string& from) {
        db::Query query{connection_,
                        "SELECT COUNT(*) AS Whole, SUM(CASE WHEN SOPInstanceUID>? THEN 0 ELSE 1 END) AS Done "
                        "FROM Image"};
        auto row = query.bind(1, varchar(from)).open();
        if (!row.next())
            return;
        done_ = row.isNull("Done") ? 0 : row.integer("Done");
        events_.begins(row.integer("Whole"));
        events_.goesOn(done_);
    }

    void fillPatients() {
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
            events_.goesOn(done_);
        }
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
                events_.unreadable(error.what());
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
    const FillEvents& events_;
    db::Query patients_, images_;
    db::Query updatePatient_, updateImage_, updateSeries_, updateStudy_;
    long long done_ = 0;
    Filled filled_;
};

}  // namespace

Filled fillOlderRows(const db::Connection& connection, const FillEvents& events) {
    auto from = schema::filledTo(connection);
    if (!from)
        return {};
    return Filling{connection, events}.run(std::move(*from));
}

}  // namespace tessaly::tool
