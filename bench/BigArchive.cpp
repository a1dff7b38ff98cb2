#include "bench/BigArchive.h"

#include <fcntl.h>

#include "bench/Measure.h"
#include "schema/Schema.h"

namespace tessaly::bench {

namespace fs = std::filesystem;

namespace {

constexpr const char* Uid = "2.25.123456789012345678.";

std::string insert(const std::string& columns, const std::string& values, int count) {
    return "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i+1<" + std::to_string(count) +
           ") INSERT INTO " + columns + " SELECT " + values + " FROM n;";
}

std::string uid(int kind, const std::string& number) {
    return std::string{"'"} + Uid + std::to_string(kind) + ".'||(" + number + ")";
}

std::string quotient(int divisor) {
    return "i/" + std::to_string(divisor);
}

}  // namespace

void BigArchive::writeStudies() const {
    sqlite3* handle = openPlain(database);
    runPlain(handle, "PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF");
    runPlain(handle, std::string{schema::engine("SQLite").tables});
    runPlain(handle, insert("Patient (ID, PatientID, Name, BirthDate, Sex)",
                            "i, 'P'||i, 'Name^'||i, '19700101', 'O'", patients()));
    runPlain(
        handle,
        insert(
            "Study (StudyInstanceUID, IDPatient, StudyPath, StudyID, StudyDate, StudyTime, AccessionNumber,"
            " Description)",
            uid(1, "i") + "," + quotient(StudiesPerPatient) + ",'" + root +
                "\\'||i, i, '20060102', '120000', 'A'||i, 'Thorax'",
            studies()));
    sqlite3_close(handle);
}

void BigArchive::writeTables() const {
    writeStudies();
    sqlite3* handle = openPlain(database);
    runPlain(handle, "PRAGMA synchronous=OFF");
    runPlain(
        handle,
        insert("Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir, Modality, SeriesNumber, Description)",
               uid(2, "i") + "," + uid(1, quotient(SeriesPerStudy)) + ", 'S'||i, 'CT', i, 'Axial'",
               series()));
    runPlain(handle,
             insert("Image (SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, TransferSyntaxUID,"
                    " InstanceNumber)",
                    uid(3, "i") + "," + uid(2, quotient(ImagesPerSeries)) + ", 'I'||(i%" +
                        std::to_string(FilesPerSeries) +
                        ")||'.dcm', '1.2.840.10008.5.1.4.1.1.2', '1.2.840.10008.1.2.1', i%" +
                        std::to_string(ImagesPerSeries),
                    images));
    sqlite3_close(handle);
}

std::string BigArchive::folderOf(int study) const {
    return root + "/" + std::to_string(study);
}

void BigArchive::writeFiles() const {
    for (int i = 0; i < series(); ++i) {
        const std::string folder = folderOf(i / SeriesPerStudy) + "/S" + std::to_string(i);
        fs::create_directories(folder);
        for (int file = 0; file < FilesPerSeries; ++file) {
            const int made =
                open((folder + "/I" + std::to_string(file) + ".dcm").c_str(), O_CREAT | O_WRONLY, 0644);
            if (made < 0)
                throw std::runtime_error("cannot write the files");
            close(made);
        }
    }
}

void BigArchive::loseFiles() const {
    constexpr int Every = 10;
    for (int study = 0; study < studies(); ++study) {
        if (study / StudiesPerPatient % Every == 0)
            fs::remove_all(folderOf(study));
    }
}

}  // namespace tessaly::bench
