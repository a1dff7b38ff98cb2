#include "maintenance/RepairTable.h"

#include <array>

#include "archive/StoredPath.h"
#include "db/Error.h"
#include "db/Number.h"

namespace tessaly::maintenance {

namespace {

db::Param number(const std::string& cell) {
    if (const auto value = db::toInteger(cell))
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
    const std::string& folder = owner.text("SeriesDir");
    const std::string path = owner.text("StudyPath") + "\\" + folder + "\\" + image.back();
    return isOrdinaryFile(archive::localPath(path)) ? Verdict::Keep : Verdict::SayAndRemove;
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

}  // namespace

// An owner is held with the strongest of row locks: a server that adds the first row below it changes nothing
// in it, and only locks it against being removed.
const RepairShape& shapeOf(Check check) {
    // One joined statement tells of every row what it holds, several times as fast as a question for each
    // row. In words that every engine knows; and with all columns of studies and patients, so that no index
    // but the table gives the order. Only an image without its series or study holds nothing: a part of its
    // path that has no value, in a database from elsewhere, is an empty one.
    static const std::string Images =
        "CASE WHEN Study.StudyInstanceUID IS NOT NULL THEN COALESCE(Study.StudyPath, '') || '\\' || "
        "COALESCE(Series.SeriesDir, '') || '\\' || COALESCE(Image.ImageFile, '') END AS Holds FROM Image "
        "LEFT JOIN Series ON Series.SeriesInstanceUID=Image.SeriesInstanceUID "
        "LEFT JOIN Study ON Study.StudyInstanceUID=Series.StudyInstanceUID";
    static const std::string AllSeries =
        "CASE WHEN EXISTS (SELECT * FROM Image WHERE Image.SeriesInstanceUID=Series.SeriesInstanceUID) "
        "THEN 1 END AS Holds FROM Series";
    static const std::string Studies =
        "CASE WHEN EXISTS (SELECT * FROM Series WHERE Series.StudyInstanceUID=Study.StudyInstanceUID) "
        "THEN 1 END AS Holds FROM Study";
    static const std::string Patients =
        "CASE WHEN EXISTS (SELECT * FROM Study WHERE Study.IDPatient=Patient.ID) "
        "THEN 1 END AS Holds FROM Patient";
    static const std::array Shapes{
        RepairShape{.walk = "SELECT Image.SOPInstanceUID, " + Images,
                    .key = "SOPInstanceUID",
                    .stays = hasFile,
                    .parameter = text,
                    .row = "SELECT Image.SOPInstanceUID, Image.SeriesInstanceUID, Image.ImageFile, " +
                           Images + " WHERE Image.SOPInstanceUID=?",
                    .own = {"SOPInstanceUID", "SeriesInstanceUID", "ImageFile"},
                    .hold = "UPDATE Image SET ImageFile=ImageFile WHERE SOPInstanceUID=? "
                            "AND COALESCE(SeriesInstanceUID, '')=? AND COALESCE(ImageFile, '')=?",
                    .test = "SELECT Series.SeriesDir, Study.StudyPath from Study, Series "
                            "WHERE Series.SeriesInstanceUID=? "
                            "AND Study.StudyInstanceUID=Series.StudyInstanceUID",
                    .tested = 1,
                    .rule = judgeImage,
                    .removal = "DELETE FROM Image WHERE SOPInstanceUID=?"},
        RepairShape{
            .walk = "SELECT Series.SeriesInstanceUID, " + AllSeries,
            .key = "SeriesInstanceUID",
            .stays = holdsAnything,
            .parameter = text,
            .row = "SELECT Series.SeriesInstanceUID, " + AllSeries + " WHERE Series.SeriesInstanceUID=?",
            .own = {"SeriesInstanceUID"},
            .hold = "UPDATE Series SET SeriesDir=SeriesDir WHERE SeriesInstanceUID="
                    "(SELECT SeriesInstanceUID FROM Series WHERE SeriesInstanceUID=? FOR UPDATE)",
            .test = "SELECT COUNT(*) AS NumImg FROM Image Where SeriesInstanceUID=?",
            .tested = 0,
            .rule = judgeCount<NumImg>,
            .removal = "DELETE FROM Series WHERE SeriesInstanceUID=?"},
        RepairShape{.walk = "SELECT Study.*, " + Studies,
                    .key = "StudyInstanceUID",
                    .stays = holdsAnything,
                    .parameter = text,
                    .row = "SELECT Study.StudyInstanceUID, " + Studies + " WHERE Study.StudyInstanceUID=?",
                    .own = {"StudyInstanceUID"},
                    .hold = "UPDATE Study SET StudyPath=StudyPath WHERE StudyInstanceUID="
                            "(SELECT StudyInstanceUID FROM Study WHERE StudyInstanceUID=? FOR UPDATE)",
                    .test = "SELECT COUNT(*) AS NumSeries FROM Series Where StudyInstanceUID=?",
                    .tested = 0,
                    .rule = judgeCount<NumSeries>,
                    .removal = "DELETE FROM Study WHERE StudyInstanceUID=?"},
        RepairShape{
            .walk = "SELECT Patient.*, " + Patients,
            .key = "ID",
            .stays = holdsAnything,
            .parameter = number,
            .row = "SELECT Patient.ID, " + Patients + " WHERE Patient.ID=?",
            .own = {"ID"},
            .hold = "UPDATE Patient SET ID=ID WHERE ID=(SELECT ID FROM Patient WHERE ID=? FOR UPDATE)",
            .test = "SELECT COUNT(*) AS NumStudies FROM [Study] WHERE IDPatient=?",
            .tested = 0,
            .rule = judgeCount<NumStudies>,
            .removal = "DELETE FROM Patient WHERE ID=?"},
    };
    return Shapes.at(static_cast<std::size_t>(check));
}

}  // namespace tessaly::maintenance
