#include "tessalyd/archive/ArchiveSession.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dimse.h>

#include <string_view>

#include "db/Transaction.h"
#include "tessalyd/Configuration.h"
#include "tessalyd/archive/HeaderColumns.h"
#include "tessalyd/archive/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

using db::integer;
using db::varchar;

/// In the words of the SQLite driver; others pass over them.
std::string settings(std::chrono::seconds wait) {
    // What the sender is told to be stored is to be found after a power failure, too.
    std::string text = "SyncPragma=FULL";
    if (wait > std::chrono::seconds::zero())
        text += ";Timeout=" + std::to_string(std::chrono::milliseconds{wait}.count());
    return text;
}

std::string select(std::string_view columns, std::span<const HeaderColumn> more, std::string_view rest) {
    return "SELECT " + std::string{columns} + ", " + namesOf(more) + std::string{rest};
}

/// The header's columns come first, then the others.
std::string insert(std::string_view table, std::span<const HeaderColumn> columns, std::string_view others,
                   std::size_t otherCount) {
    return "INSERT INTO " + std::string{table} + " (" + namesOf(columns) + ", " + std::string{others} +
           ") VALUES (" + markers(columns.size() + otherCount) + ')';
}

std::string update(std::string_view table, std::span<const HeaderColumn> columns, std::string_view rest) {
    return "UPDATE " + std::string{table} + " SET " + assignmentsOf(columns) + std::string{rest};
}

}  // namespace

ArchiveSession::Statements::Statements(const db::Connection& connection)
    : patient{connection, select("ID", patientColumns(), " FROM Patient WHERE PatientID=?")},
      lastPatient{connection, "SELECT MAX(ID) AS LastID FROM Patient"},
      addPatient{connection, insert("Patient", patientColumns(), "ID, PatientID", 2)},
      updatePatient{connection, update("Patient", patientColumns(), " WHERE ID=?")},
      study{connection,
            select("IDPatient, StudyPath", studyColumns(), " FROM Study WHERE StudyInstanceUID=?")},
      addStudy{connection, insert("Study", studyColumns(), "IDPatient, StudyInstanceUID, StudyPath", 3)},
      updateStudy{connection, update("Study", studyColumns(), ", IDPatient=? WHERE StudyInstanceUID=?")},
      series{connection, select("StudyInstanceUID, SeriesDir", seriesColumns(),
                                " FROM Series WHERE SeriesInstanceUID=?")},
      addSeries{connection,
                insert("Series", seriesColumns(), "SeriesInstanceUID, StudyInstanceUID, SeriesDir", 3)},
      updateSeries{connection, update("Series", seriesColumns(), " WHERE SeriesInstanceUID=?")},
      image{connection, "SELECT SeriesInstanceUID, ImageFile FROM Image WHERE SOPInstanceUID=?"},
      addImage{connection,
               insert("Image", imageColumns(), "SOPInstanceUID, SeriesInstanceUID, ImageFile", 3)},
      updateImage{connection, update("Image", imageColumns(), " WHERE SOPInstanceUID=?")},
      moveImage{connection, "UPDATE Image SET SeriesInstanceUID=?, ImageFile=? WHERE SOPInstanceUID=?"},
      imageFolder{connection,
                  "SELECT Study.StudyPath, Series.SeriesDir FROM Study, Series "
                  "WHERE Series.SeriesInstanceUID=? AND Study.StudyInstanceUID=Series.StudyInstanceUID"} {}

ArchiveSession::ArchiveSession(std::chrono::seconds wait) {
    openDatabase(connection_, settings(wait));
    run_.emplace(connection_);
}

ArchiveSession::Folders ArchiveSession::folders(const ObjectHeader& header) {
    Folders found;
    run_->study.bind(1, varchar(header.studyInstanceUid));
    if (db::ResultSet row = run_->study.open(); row.next())
        found.studyPath = row.text("StudyPath");
    run_->series.bind(1, varchar(header.seriesInstanceUid));
    if (db::ResultSet row = run_->series.open(); row.next()) {
        // The tables know a series by its UID alone: its files would be looked for below the other study.
        if (row.text("StudyInstanceUID") != header.studyInstanceUid)
            throw StoreFailure{STATUS_STORE_Error_CannotUnderstand, "The series belongs to another study"};
        found.seriesDir = row.text("SeriesDir");
    }
    return found;
}

std::optional<ArchiveLocation> ArchiveSession::record(const ObjectHeader& header,
                                                      const ArchiveLocation& location) {
    db::Transaction transaction{connection_};
    // First a statement that writes, if only nothing: it waits for other writers. A transaction that begins
    // by reading and finds that another has written since would fail at once instead.
    run_->updateImage.bindAll(valuesOf(imageColumns(), header, {varchar(header.sopInstanceUid)})).execute();
    const auto before = image(header.sopInstanceUid);
    recordStudy(header, recordPatient(header), location.studyPath);
    recordSeries(header, location.seriesDir);
    std::optional<ArchiveLocation> previous;
    if (!before) {
        run_->addImage
            .bindAll(valuesOf(imageColumns(), header,
                              {varchar(header.sopInstanceUid), varchar(header.seriesInstanceUid),
                               varchar(location.imageFile)}))
            .execute();
    } else if (before->series != header.seriesInstanceUid || before->file != location.imageFile) {
        previous = locationOf(*before);
        run_->moveImage
            .bindAll({varchar(header.seriesInstanceUid), varchar(location.imageFile),
                      varchar(header.sopInstanceUid)})
            .execute();
    }
    transaction.commit();
    return previous;
}

std::optional<ArchiveSession::ImageRow> ArchiveSession::image(const std::string& sopInstanceUid) {
    run_->image.bind(1, varchar(sopInstanceUid));
    db::ResultSet row = run_->image.open();
    if (!row.next())
        return std::nullopt;
    return ImageRow{.series = row.text("SeriesInstanceUID"), .file = row.text("ImageFile")};
}

std::optional<ArchiveLocation> ArchiveSession::locationOf(const ImageRow& image) {
    run_->imageFolder.bind(1, varchar(image.series));
    db::ResultSet row = run_->imageFolder.open();
    if (!row.next())
        return std::nullopt;
    return ArchiveLocation{row.text("StudyPath"), row.text("SeriesDir"), image.file};
}

long long ArchiveSession::recordPatient(const ObjectHeader& header) {
    run_->patient.bind(1, varchar(header.patientId));
    std::optional<long long> id;
    bool changed = false;
    if (db::ResultSet row = run_->patient.open(); row.next()) {
        id = row.integer("ID");
        changed = differs(row, patientColumns(), header);
    }
    if (!id)
        return addPatient(header);
    if (changed)
        run_->updatePatient.bindAll(valuesOf(patientColumns(), header, {integer(*id)})).execute();
    return *id;
}

long long ArchiveSession::addPatient(const ObjectHeader& header) {
    long long id = 1;
    if (db::ResultSet row = run_->lastPatient.open(); row.next() && !row.isNull("LastID"))
        id = row.integer("LastID") + 1;
    run_->addPatient.bindAll(valuesOf(patientColumns(), header, {integer(id), varchar(header.patientId)}))
        .execute();
    return id;
}

void ArchiveSession::recordStudy(const ObjectHeader& header, long long patient,
                                 const std::string& studyPath) {
    run_->study.bind(1, varchar(header.studyInstanceUid));
    bool known = false;
    bool changed = false;
    if (db::ResultSet row = run_->study.open(); row.next()) {
        known = true;
        if (row.text("StudyPath") != studyPath)
            throw StoreFailure{STATUS_STORE_Refused_OutOfResources, "The study was moved meanwhile"};
        changed = row.integer("IDPatient") != patient || differs(row, studyColumns(), header);
    }
    if (known && !changed)
        return;
    db::Query& write = known ? run_->updateStudy : run_->addStudy;
    write.bindAll(valuesOf(studyColumns(), header, {integer(patient), varchar(header.studyInstanceUid)}));
    if (!known)
        write.bind(static_cast<int>(studyColumns().size()) + 3, varchar(studyPath));
    write.execute();
}

void ArchiveSession::recordSeries(const ObjectHeader& header, const std::string& seriesDir) {
    run_->series.bind(1, varchar(header.seriesInstanceUid));
    bool known = false;
    bool changed = false;
    if (db::ResultSet row = run_->series.open(); row.next()) {
        known = true;
        if (row.text("StudyInstanceUID") != header.studyInstanceUid || row.text("SeriesDir") != seriesDir)
            throw StoreFailure{STATUS_STORE_Refused_OutOfResources, "The series was moved meanwhile"};
        changed = differs(row, seriesColumns(), header);
    }
    if (known && !changed)
        return;
    db::Query& write = known ? run_->updateSeries : run_->addSeries;
    write.bindAll(valuesOf(seriesColumns(), header, {varchar(header.seriesInstanceUid)}));
    if (!known) {
        const int others = static_cast<int>(seriesColumns().size()) + 1;
        write.bind(others + 1, varchar(header.studyInstanceUid)).bind(others + 2, varchar(seriesDir));
    }
    write.execute();
}

}  // namespace tessaly::tessalyd
