#include "tessalyd/store/ArchiveSession.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dimse.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "db/Transaction.h"
#include "schema/HeaderColumns.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/store/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

using db::integer;
using db::varchar;
using schema::assignmentsOf;
using schema::differs;
using schema::HeaderColumn;
using schema::imageColumns;
using schema::markers;
using schema::namesOf;
using schema::patientColumns;
using schema::seriesColumns;
using schema::studyColumns;
using schema::valuesOf;

/// Runs a step until it has come to something. What makes it begin anew is that others wrote between two of
/// its statements; every time one of them has got further, so that this is bounded by their number.
template <class Step>
auto settled(Step step) -> decltype(step()) {
    constexpr int Tries = 200;
    for (int i = 0; i < Tries; ++i)
        if (auto done = step())
            return done;
    throw StoreFailure{STATUS_STORE_Refused_OutOfResources, "The database takes no object now",
                       "other stores write the same rows all the time"};
}

/// Locks a row that the store builds on, of another table than it writes, against being removed.
void keep(db::Query& row) {
    if (!row.open().next())
        throw db::Conflict{"A row of the object was removed meanwhile"};
}

std::string select(std::string_view columns, std::span<const HeaderColumn> more, std::string_view rest) {
    return "SELECT " + std::string{columns} + ", " + namesOf(more) + std::string{rest};
}

/// Adds the row unless its key is there already. The header's columns come first, then the others.
std::string insert(const db::Connection& connection, std::string_view table,
                   std::span<const HeaderColumn> columns, std::string_view others, std::size_t otherCount) {
    return connection.dialect().insertNew(table, namesOf(columns) + ", " + std::string{others},
                                          '(' + markers(columns.size() + otherCount) + ')');
}

/// The end of a statement whose rows are not to be removed until the transaction ends.
std::string kept(const db::Connection& connection, std::string_view table = {}) {
    return connection.dialect().rowLock(db::RowLock::Removal, table);
}

std::string update(std::string_view table, std::span<const HeaderColumn> columns, std::string_view rest) {
    return "UPDATE " + std::string{table} + " SET " + assignmentsOf(columns) + std::string{rest};
}

/// What holds of a row that says what an object says; nothing and an empty text are the same.
std::string same(const std::string& table, std::span<const HeaderColumn> columns) {
    std::string list;
    for (const HeaderColumn& column : columns)
        list += " AND " +
                (column.isText ? "COALESCE(" + table + '.' + std::string{column.name} + ", '')"
                               : table + '.' + std::string{column.name}) +
                "=?";
    return list;
}

}  // namespace

// A series is read with a lock that keeps others from removing it, and nobody else from it: the image that is
// being added is not to be seen by them yet.
ArchiveSession::Statements::Statements(const db::Connection& connection)
    : owners{connection,
             "SELECT 1 AS Same FROM Series, Study, Patient WHERE Series.SeriesInstanceUID=? "
             "AND Series.StudyInstanceUID=? AND Series.SeriesDir=? "
             "AND Study.StudyInstanceUID=Series.StudyInstanceUID AND Study.StudyPath=? "
             "AND Patient.ID=Study.IDPatient AND Patient.PatientID=?" +
                 same("Series", seriesColumns()) + same("Study", studyColumns()) +
                 same("Patient", patientColumns()) + kept(connection, "Series")},
      patient{connection, select("ID", patientColumns(), " FROM Patient WHERE PatientID=?")},
      keepPatient{connection, "SELECT ID FROM Patient WHERE ID=?" + kept(connection)},
      lastPatient{connection, "SELECT MAX(ID) AS LastID FROM Patient"},
      addPatient{connection, insert(connection, "Patient", patientColumns(), "ID, PatientID", 2)},
      updatePatient{connection, update("Patient", patientColumns(), " WHERE ID=?")},
      study{connection,
            select("IDPatient, StudyPath", studyColumns(), " FROM Study WHERE StudyInstanceUID=?")},
      keepStudy{connection, "SELECT StudyInstanceUID FROM Study WHERE StudyInstanceUID=?" + kept(connection)},
      addStudy{connection,
               insert(connection, "Study", studyColumns(), "IDPatient, StudyInstanceUID, StudyPath", 3)},
      updateStudy{connection, update("Study", studyColumns(), ", IDPatient=? WHERE StudyInstanceUID=?")},
      series{connection, select("StudyInstanceUID, SeriesDir", seriesColumns(),
                                " FROM Series WHERE SeriesInstanceUID=?" + kept(connection))},
      addSeries{connection, insert(connection, "Series", seriesColumns(),
                                   "SeriesInstanceUID, StudyInstanceUID, SeriesDir", 3)},
      updateSeries{connection, update("Series", seriesColumns(), " WHERE SeriesInstanceUID=?")},
      image{connection, "SELECT SeriesInstanceUID, ImageFile FROM Image WHERE SOPInstanceUID=?"},
      addImage{connection, insert(connection, "Image", imageColumns(),
                                  "SOPInstanceUID, SeriesInstanceUID, ImageFile", 3)},
      updateImage{connection, update("Image", imageColumns(), " WHERE SOPInstanceUID=?")},
      moveImage{connection, "UPDATE Image SET SeriesInstanceUID=?, ImageFile=? WHERE SOPInstanceUID=?"},
      folders{connection,
              "SELECT StudyPath, NULL AS StudyInstanceUID, NULL AS SeriesDir FROM Study "
              "WHERE StudyInstanceUID=? UNION ALL "
              "SELECT NULL, StudyInstanceUID, SeriesDir FROM Series WHERE SeriesInstanceUID=?"},
      imageFolder{connection,
                  "SELECT Study.StudyPath, Series.SeriesDir FROM Study, Series "
                  "WHERE Series.SeriesInstanceUID=? AND Study.StudyInstanceUID=Series.StudyInstanceUID"} {}

ArchiveSession::ArchiveSession(std::chrono::seconds wait) {
    connection_.setLockWait(wait);
    // What the sender is told to be stored is to be found after a power failure, too.
    openDatabase(connection_, db::Purpose::DurableWrites);
    run_.emplace(connection_);
}

ArchiveSession::Folders ArchiveSession::folders(const ObjectHeader& header) {
    Folders found;
    run_->folders.bindAll({varchar(header.studyInstanceUid), varchar(header.seriesInstanceUid)});
    for (db::ResultSet row = run_->folders.open(); row.next();) {
        if (!row.isNull("StudyPath")) {
            found.studyPath = row.text("StudyPath");
            continue;
        }
        // The tables know a series by its UID alone: its files would be looked for below the other study.
        if (row.text("StudyInstanceUID") != header.studyInstanceUid)
            throw StoreFailure{STATUS_STORE_Error_CannotUnderstand, "The series belongs to another study"};
        found.seriesDir = row.text("SeriesDir");
    }
    return found;
}

void ArchiveSession::record(const ObjectHeader& header, const archive::Location& location,
                            const StoreSteps& steps) {
    ObjectRows object{.header = header, .location = location, .steps = steps};
    const std::array objects{&object};
    record(objects);
}

void ArchiveSession::record(std::span<ObjectRows* const> objects) {
    const auto forEach = [objects](const auto& step) {
        for (ObjectRows* object : objects) {
            try {
                step(*object);
            } catch (const db::Error&) {  // the engine's, which may well be all objects' affair
                throw;
            } catch (...) {
                object->fault = std::current_exception();
                throw;
            }
        }
    };
    db::Transaction transaction{connection_};
    forEach([this](const ObjectRows& object) { writeRows(object); });
    if (!isInPlace())
        throw databaseMoved();
    forEach([](const ObjectRows& object) { object.steps.publish(); });
    transaction.commit();
    if (!isInPlace())  // the rows may be in a file that nobody has any more, or that comes back
        throw StoreUndecided{databaseMoved()};
}

void ArchiveSession::writeRows(const ObjectRows& object) {
    const auto& [header, location, steps, fault] = object;
    // Always in this order, one row a table, so that no two stores wait for each other. And first a statement
    // that writes: it waits for other writers. A transaction that begins by reading and finds that another
    // has written since fails at once instead, where one writes at a time.
    const std::optional<ImageRow> before = recordImage(header, location.imageFile);
    if (!ownersAreAsTheyShouldBe(header, location)) {
        recordStudy(header, recordPatient(header), location.studyPath);
        recordSeries(header, location.seriesDir);
    }
    std::optional<archive::Location> former;
    if (before && (before->series != header.seriesInstanceUid || before->file != location.imageFile)) {
        former = locationOf(*before);
        run_->moveImage
            .bindAll({varchar(header.seriesInstanceUid), varchar(location.imageFile),
                      varchar(header.sopInstanceUid)})
            .execute();
    }
    steps.writeRows(connection_);
    steps.leave(former != location ? former : std::nullopt);
}

bool ArchiveSession::hasStudiesIn(const std::string& root) {
    const auto isBeginning = [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; };
    const auto characters = std::count_if(root.begin(), root.end(), isBeginning);
    db::Query query{connection_, "SELECT 1 AS Found FROM Study WHERE SUBSTR(StudyPath, 1, ?) IN (?, ?)"};
    query.bindAll({integer(characters + 1), varchar(root + '\\'), varchar(root + '/')});
    return query.open().next();
}

/// Most objects come into a series that is there, and say nothing new of it: one statement tells.
bool ArchiveSession::ownersAreAsTheyShouldBe(const ObjectHeader& header, const archive::Location& location) {
    std::vector<db::Param> values{varchar(header.seriesInstanceUid), varchar(header.studyInstanceUid),
                                  varchar(location.seriesDir), varchar(location.studyPath),
                                  varchar(header.patientId)};
    for (const auto columns : {seriesColumns(), studyColumns(), patientColumns()}) {
        const auto more = valuesOf(columns, header, {});
        values.insert(values.end(), more.begin(), more.end());
    }
    run_->owners.bindAll(std::move(values));
    return run_->owners.open().next();
}

std::optional<ArchiveSession::ImageRow> ArchiveSession::recordImage(const ObjectHeader& header,
                                                                    const std::string& file) {
    std::optional<ImageRow> before;
    settled([&] {
        run_->addImage.bindAll(
            valuesOf(imageColumns(), header,
                     {varchar(header.sopInstanceUid), varchar(header.seriesInstanceUid), varchar(file)}));
        if (run_->addImage.execute() > 0)
            return true;
        run_->updateImage.bindAll(valuesOf(imageColumns(), header, {varchar(header.sopInstanceUid)}))
            .execute();
        before = image(header.sopInstanceUid);
        return before.has_value();
    });
    return before;
}

std::optional<ArchiveSession::ImageRow> ArchiveSession::image(const std::string& sopInstanceUid) {
    run_->image.bind(1, varchar(sopInstanceUid));
    db::ResultSet row = run_->image.open();
    if (!row.next())
        return std::nullopt;
    return ImageRow{.series = row.text("SeriesInstanceUID"), .file = row.text("ImageFile")};
}

std::optional<archive::Location> ArchiveSession::locationOf(const ImageRow& image) {
    run_->imageFolder.bind(1, varchar(image.series));
    db::ResultSet row = run_->imageFolder.open();
    if (!row.next())
        return std::nullopt;
    return archive::Location{row.text("StudyPath"), row.text("SeriesDir"), image.file};
}

long long ArchiveSession::recordPatient(const ObjectHeader& header) {
    return *settled([&]() -> std::optional<long long> {
        run_->patient.bind(1, varchar(header.patientId));
        std::optional<long long> id;
        bool changed = false;
        if (db::ResultSet row = run_->patient.open(); row.next()) {
            id = row.integer("ID");
            changed = differs(row, patientColumns(), header);
        }
        if (!id)
            return addPatient(header);
        if (changed &&
            run_->updatePatient.bindAll(valuesOf(patientColumns(), header, {integer(*id)})).execute() == 0)
            return std::nullopt;
        return id;
    });
}

std::optional<long long> ArchiveSession::addPatient(const ObjectHeader& header) {
    long long id = 1;
    if (db::ResultSet row = run_->lastPatient.open(); row.next() && !row.isNull("LastID"))
        id = row.integer("LastID") + 1;
    run_->addPatient.bindAll(valuesOf(patientColumns(), header, {integer(id), varchar(header.patientId)}));
    // Otherwise somebody else has added this patient, or has taken the number for another one.
    return run_->addPatient.execute() > 0 ? std::optional{id} : std::nullopt;
}

void ArchiveSession::recordStudy(const ObjectHeader& header, long long patient,
                                 const std::string& studyPath) {
    settled([&] {
        run_->study.bind(1, varchar(header.studyInstanceUid));
        bool known = false;
        bool ofPatient = false;
        bool changed = false;
        if (db::ResultSet row = run_->study.open(); row.next()) {
            known = true;
            if (row.text("StudyPath") != studyPath)
                throw Displaced{"The study was moved meanwhile"};
            ofPatient = row.integer("IDPatient") == patient;
            changed = !ofPatient || differs(row, studyColumns(), header);
        }
        if (known && !changed)
            return true;
        if (!ofPatient)
            keep(run_->keepPatient.bind(1, integer(patient)));
        db::Query& write = known ? run_->updateStudy : run_->addStudy;
        write.bindAll(valuesOf(studyColumns(), header, {integer(patient), varchar(header.studyInstanceUid)}));
        if (!known)
            write.bind(static_cast<int>(studyColumns().size()) + 3, varchar(studyPath));
        return write.execute() > 0;
    });
}

void ArchiveSession::recordSeries(const ObjectHeader& header, const std::string& seriesDir) {
    settled([&] {
        run_->series.bind(1, varchar(header.seriesInstanceUid));
        bool known = false;
        bool changed = false;
        if (db::ResultSet row = run_->series.open(); row.next()) {
            known = true;
            if (row.text("StudyInstanceUID") != header.studyInstanceUid || row.text("SeriesDir") != seriesDir)
                throw Displaced{"The series was moved meanwhile"};
            changed = differs(row, seriesColumns(), header);
        }
        if (known && !changed)
            return true;
        if (!known)
            keep(run_->keepStudy.bind(1, varchar(header.studyInstanceUid)));
        db::Query& write = known ? run_->updateSeries : run_->addSeries;
        write.bindAll(valuesOf(seriesColumns(), header, {varchar(header.seriesInstanceUid)}));
        if (!known) {
            const int others = static_cast<int>(seriesColumns().size()) + 1;
            write.bind(others + 1, varchar(header.studyInstanceUid)).bind(others + 2, varchar(seriesDir));
        }
        return write.execute() > 0;
    });
}

}  // namespace tessaly::tessalyd
