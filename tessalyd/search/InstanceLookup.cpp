#include "tessalyd/search/InstanceLookup.h"

#include "archive/Location.h"
#include "archive/StoredPath.h"

namespace tessaly::tessalyd {

InstanceLookup::InstanceLookup(const db::Connection& connection)
    : query_(connection,
             "SELECT Study.StudyInstanceUID, Study.StudyPath, Series.SeriesInstanceUID, Series.SeriesDir, "
             "Image.ImageFile, Image.SOPInstanceUID, Image.SOPClassUID, Image.TransferSyntaxUID, "
             "Image.FileSize FROM Image, Series, Study WHERE Image.SOPInstanceUID=? "
             "AND Series.SeriesInstanceUID=Image.SeriesInstanceUID "
             "AND Study.StudyInstanceUID=Series.StudyInstanceUID") {}

std::optional<LocatedInstance> InstanceLookup::find(const std::string& sopInstanceUid) {
    query_.bind(1, db::varchar(sopInstanceUid));
    db::ResultSet row = query_.open();
    if (!row.next())
        return std::nullopt;
    const archive::Location location{row.text("StudyPath"), row.text("SeriesDir"), row.text("ImageFile")};
    LocatedInstance found{.stored = {.sopClassUid = row.text("SOPClassUID"),
                                     .sopInstanceUid = row.text("SOPInstanceUID"),
                                     .transferSyntaxUid = row.text("TransferSyntaxUID"),
                                     .file = archive::localPath(location.path()),
                                     .root = rootOf(archive::localPath(location.studyPath))},
                          .studyInstanceUid = row.text("StudyInstanceUID"),
                          .seriesInstanceUid = row.text("SeriesInstanceUID"),
                          .fileSize = {}};
    if (!row.isNull("FileSize"))
        found.fileSize = static_cast<std::uint64_t>(row.integer("FileSize"));
    return found;
}

}  // namespace tessaly::tessalyd
