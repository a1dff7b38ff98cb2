#include "maintenance/RepairTable.h"

#include <array>

#include "archive/Location.h"
#include "archive/StoredPath.h"
#include "base/Number.h"
#include "db/Error.h"
#include "db/dialects/Dialect.h"

namespace tessaly::maintenance {

namespace {

db::Param number(const std::string& cell) {
    if (const auto value = base::wholePart(cell))
        return db::integer(*value);
    throw db::Error{"\"" + cell + "\" is no number of a patient"};
}

db::Param text(const std::string& cell) {
    return db::varchar(cell);
}

bool hasFile(const std::string& path, ImageFiles& files) {
    return !path.empty() && files.isThere(archive::localPath(path));
}

/// An image without its series or study goes silently; one without its file is announced.
Verdict judgeImage(db::ResultSet& owner, const std::vector<std::string>& image) {
    if (!owner.next())
        return Verdict::Remove;
    const archive::Location location{owner.text("StudyPath"), owner.text("SeriesDir"), image.back()};
    return isOrdinaryFile(archive::localPath(location.path())) ? Verdict::Keep : Verdict::SayAndRemove;
}

bool holdsAnything(const std::string& holds, ImageFiles& /*files*/) {
    return !holds.empty();
}

template <const auto& Column>
Verdict judgeCount(db::ResultSet& count, const std::vector<std::string>& /*owner*/) {
    return count.next() && count.integer(Column.data()) == 0 ? Verdict::Remove : Verdict::Keep;
}

constexpr auto NumImg = std::to_array("NumImg");
constexpr auto NumSeries = std::to_array("NumSeries");
constexpr auto NumStudies = std::to_array("NumStudies");

// A check's walk is one joined statement that tells of every row what it holds, several times as fast as a
// question for each row. It has all columns of studies and patients, so that no index but the table gives the
// order.

/// Only an image without its series or study holds nothing: a part of its path that has no value, in a
/// database from elsewhere, is an empty one.
RepairShape images() {
    const std::string from =
        "CASE WHEN Study.StudyInstanceUID IS NOT NULL THEN " + archive::storedPathInSql() +
        " END AS Holds FROM Image LEFT JOIN Series ON Series.SeriesInstanceUID=Image.SeriesInstanceUID "
        "LEFT JOIN Study ON Study.StudyInstanceUID=Series.StudyInstanceUID";
    return {.walk = "SELECT Image.SOPInstanceUID, " + from,
            .key = "SOPInstanceUID",
            .stays = hasFile,
            .parameter = text,
            .row = "SELECT Image.SOPInstanceUID, Image.SeriesInstanceUID, Image.ImageFile, " + from +
                   " WHERE Image.SOPInstanceUID=?",
            .own = {"SOPInstanceUID", "SeriesInstanceUID", "ImageFile"},
            .hold =
                "UPDATE Image SET ImageFile=ImageFile WHERE SOPInstanceUID=? "
                "AND COALESCE(SeriesInstanceUID, '')=? AND COALESCE(ImageFile, '')=?",
            .test =
                "SELECT Series.SeriesDir, Study.StudyPath from Study, Series "
                "WHERE Series.SeriesInstanceUID=? "
                "AND Study.StudyInstanceUID=Series.StudyInstanceUID",
            .tested = 1,
            .rule = judgeImage,
            .removal = "DELETE FROM Image WHERE SOPInstanceUID=?"};
}

/// An owner whose walk has the columns given, and that holds something as long as there is a row below it.
RepairShape owners(const db::Dialect& dialect, const std::string& table, const std::string& key,
                   const std::string& columns, const std::string& below) {
    const std::string from =
        "CASE WHEN EXISTS (SELECT * FROM " + below + ") THEN 1 END AS Holds FROM " + table;
    RepairShape shape{};
    shape.walk = "SELECT " + columns + ", " + from;
    shape.key = key;
    shape.stays = holdsAnything;
    shape.parameter = text;
    shape.row = "SELECT " + table + '.' + key + ", " + from + " WHERE " + table + '.' + key + "=?";
    shape.own = {key};
    // With the strongest of row locks: a server that adds the first row below an owner changes nothing in it,
    // and only locks it against being removed.
    shape.hold = "(SELECT " + key + " FROM " + table + " WHERE " + key + "=?" +
                 dialect.rowLock(db::RowLock::Change) + ')';
    shape.removal = "DELETE FROM " + table + " WHERE " + key + "=?";
    return shape;
}

RepairShape series(const db::Dialect& dialect) {
    RepairShape shape = owners(dialect, "Series", "SeriesInstanceUID", "Series.SeriesInstanceUID",
                               "Image WHERE Image.SeriesInstanceUID=Series.SeriesInstanceUID");
    shape.hold = "UPDATE Series SET SeriesDir=SeriesDir WHERE SeriesInstanceUID=" + shape.hold;
    shape.test = "SELECT COUNT(*) AS NumImg FROM Image Where SeriesInstanceUID=?";
    shape.rule = judgeCount<NumImg>;
    return shape;
}

RepairShape studies(const db::Dialect& dialect) {
    RepairShape shape = owners(dialect, "Study", "StudyInstanceUID", "Study.*",
                               "Series WHERE Series.StudyInstanceUID=Study.StudyInstanceUID");
    shape.hold = "UPDATE Study SET StudyPath=StudyPath WHERE StudyInstanceUID=" + shape.hold;
    shape.test = "SELECT COUNT(*) AS NumSeries FROM Series Where StudyInstanceUID=?";
    shape.rule = judgeCount<NumSeries>;
    return shape;
}

RepairShape patients(const db::Dialect& dialect) {
    RepairShape shape =
        owners(dialect, "Patient", "ID", "Patient.*", "Study WHERE Study.IDPatient=Patient.ID");
    shape.parameter = number;
    shape.hold = "UPDATE Patient SET ID=ID WHERE ID=" + shape.hold;
    shape.test = "SELECT COUNT(*) AS NumStudies FROM [Study] WHERE IDPatient=?";
    shape.rule = judgeCount<NumStudies>;
    return shape;
}

}  // namespace

RepairShape shapeOf(Check check, const db::Dialect& dialect) {
    switch (check) {
        case Check::Images:
            return images();
        case Check::Series:
            return series(dialect);
        case Check::Studies:
            return studies(dialect);
        case Check::Patients:
            break;
    }
    return patients(dialect);
}

}  // namespace tessaly::maintenance
