// The filling of older rows by tessaly-db upgrade: an archive as tables of version 2 had it, a file of its
// own for each image, beside a program in plain C that opens these files and reads their beginning. An
// argument says how many images there are.
#include <fcntl.h>

#include <cstdio>
#include <vector>

#include "bench/Bench.h"
#include "bench/Measure.h"
#include "bench/Tool.h"
#include "schema/Definitions.h"
#include "tests/tessalyd/Objects.h"

namespace {

using namespace tessaly;
using namespace tessaly::bench;

constexpr int ImagesPerSeries = 100;
constexpr int SeriesPerStudy = 5;
constexpr int FirstNumber = 1'000'000;  // all of one length, so that they take each other's place in a file

std::string uid(char kind, int number) {
    return std::string{"2.25.123456789012345678."} + kind + "." + std::to_string(FirstNumber + number);
}

/// What BigArchive's ten files a series cannot be: a file for each image, which says that it is that image's.
class Archive {
  public:
    Archive(const TemporaryFolder& folder, int images)
        : database_(folder.path + "/older.mdb"), root_(folder.path + "/images"), images_(images) {}

    void write() const {
        writeFiles();
        sqlite3* handle = openPlain(database_);
        runPlain(handle, "PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF");
        runPlain(handle, std::string{schema::engine("SQLite").tables});
        runPlain(handle, "BEGIN");
        const int studies = images_ / ImagesPerSeries / SeriesPerStudy;
        fill(handle, "Patient (ID, PatientID, Name, BirthDate, Sex)", "i, 'P'||i, 'M\u00fcller^'||i, '', 'O'",
             studies);
        fill(handle,
             "Study (StudyInstanceUID, IDPatient, StudyPath, StudyID, StudyDate, StudyTime, AccessionNumber, "
             "Description)",
             sqlUid('1', "i") + ", i, '" + root_ + "', 'S', '20060102', '12', 'A'||i, 'Thorax'", studies);
        fill(handle,
             "Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir, Modality, SeriesNumber, Description)",
             sqlUid('2', "i") + "," + sqlUid('1', "i/" + std::to_string(SeriesPerStudy)) +
                 ", 'S'||i, 'CT', i, 'Axial'",
             images_ / ImagesPerSeries);
        fill(handle,
             "Image (SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, TransferSyntaxUID, "
             "InstanceNumber)",
             sqlUid('3', "i") + "," + sqlUid('2', "i/" + std::to_string(ImagesPerSeries)) +
                 ", i||'.dcm', '1.2.840.10008.5.1.4.1.1.2', '1.2.840.10008.1.2.1', i%100",
             images_);
        runPlain(handle, "COMMIT");
        makeOlder(handle);
        sqlite3_close(handle);
    }

    /// What the disk and the system take: each file opened, and as much of it read as the tool reads.
    [[nodiscard]] std::size_t readPlainly() const {
        std::size_t bytes = 0;
        std::vector<char> head(std::size_t{64} << 10U);
        for (int i = 0; i < images_; ++i) {
            const int file = open(fileOf(i).c_str(), O_RDONLY | O_CLOEXEC);
            const ssize_t count = read(file, head.data(), head.size());
            if (count <= 0)
                throw std::runtime_error("cannot read the files");
            bytes += static_cast<std::size_t>(count);
            close(file);
        }
        return bytes;
    }

    [[nodiscard]] const std::string& database() const { return database_; }

    /// Of the images, as a proof.
    [[nodiscard]] int filled() const {
        sqlite3* handle = openPlain(database_);
        sqlite3_stmt* count =
            prepare(handle, "SELECT COUNT(*) FROM Image WHERE PixelRows=32 AND ContentDate=''");
        sqlite3_step(count);
        const int result = sqlite3_column_int(count, 0);
        sqlite3_finalize(count);
        sqlite3_close(handle);
        return result;
    }

  private:
    static std::string sqlUid(char kind, const std::string& number) {
        return std::string{"'2.25.123456789012345678."} + kind + ".'||(" + std::to_string(FirstNumber) + "+" +
               number + ")";
    }

    static void fill(sqlite3* handle, const std::string& columns, const std::string& values, int count) {
        runPlain(handle, "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i+1<" +
                             std::to_string(count) + ") INSERT INTO " + columns + " SELECT " + values +
                             " FROM n");
    }

    static void makeOlder(sqlite3* handle) {
        const auto definitions = schema::definitions(schema::engine("SQLite"));
        for (const auto& index : definitions.indexes)
            if (index.name.starts_with("Study") || index.name.starts_with("Image") ||
                (index.name.starts_with("Patient") && !index.unique))
                runPlain(handle, "DROP INDEX " + index.name);
        runPlain(handle, "CREATE INDEX StudyByPatient ON Study (IDPatient)");
        runPlain(handle, "CREATE INDEX ImageBySeries ON Image (SeriesInstanceUID)");
        for (const char* column :
             {"Patient DROP COLUMN NameAlphabetic", "Patient DROP COLUMN NameIdeographic",
              "Patient DROP COLUMN NamePhonetic", "Study DROP COLUMN ReferringPhysicianName",
              "Series DROP COLUMN SeriesDate", "Series DROP COLUMN SeriesTime",
              "Series DROP COLUMN BodyPartExamined", "Series DROP COLUMN ProtocolName",
              "Image DROP COLUMN NumberInSeries", "Image DROP COLUMN ContentDate",
              "Image DROP COLUMN ContentTime", "Image DROP COLUMN PixelRows",
              "Image DROP COLUMN PixelColumns", "Image DROP COLUMN NumberOfFrames",
              "SchemaVersion DROP COLUMN FilledTo"})
            runPlain(handle, std::string{"ALTER TABLE "} + column);
        runPlain(handle, "UPDATE SchemaVersion SET Version=2");
    }

    [[nodiscard]] std::string folderOf(int image) const {
        return root_ + "/S" + std::to_string(image / ImagesPerSeries);
    }
    [[nodiscard]] std::string fileOf(int image) const {
        return folderOf(image) + "/" + std::to_string(image) + ".dcm";
    }

    void writeFiles() const {
        namespace fs = std::filesystem;
        fs::create_directories(root_);
        const std::string pattern = root_ + "/pattern.dcm";
        test::writeObject({.study = uid('1', 0), .series = uid('2', 0), .instance = uid('3', 0)},
                          QString::fromStdString(pattern));
        std::ifstream in{pattern, std::ios::binary};
        const std::string first{std::istreambuf_iterator<char>{in}, {}};
        for (int i = 0; i < images_; ++i) {
            std::string bytes = first;
            replace(bytes, uid('1', 0), uid('1', i / ImagesPerSeries / SeriesPerStudy));
            replace(bytes, uid('2', 0), uid('2', i / ImagesPerSeries));
            replace(bytes, uid('3', 0), uid('3', i));
            if (i % ImagesPerSeries == 0)
                fs::create_directories(folderOf(i));
            std::ofstream{fileOf(i), std::ios::binary} << bytes;
        }
    }

    static void replace(std::string& bytes, const std::string& old, const std::string& now) {
        for (auto at = bytes.find(old); at != std::string::npos; at = bytes.find(old, at + old.size()))
            bytes.replace(at, old.size(), now);
    }

    std::string database_;
    std::string root_;
    int images_;
};

void print(const char* what, const Result& result, int images) {
    std::printf("%-44s %8.1f s %8.0f images/s %8.1f s of processor time %5.0f MB\n", what, result.seconds,
                images / result.seconds, result.processor, result.megabytes);
    std::fflush(stdout);
}

void measureFilling(int images) {
    const TemporaryFolder folder;
    const Archive archive{folder, images};
    archive.write();
    const std::string ini = folder.path + "/odbc.ini";
    std::ofstream{ini} << "[Older]\nDriver=SQLite3\nDatabase=" << archive.database()
                       << "\nStepAPI=1\nJournalMode=WAL\nSyncPragma=NORMAL\nTimeout=5000\n";
    setenv("ODBCINI", ini.c_str(), 1);
    std::printf("%d images, each with a file of its own\n", images);
    const Result plain = inChild([&] { return measure([&] { return archive.readPlainly(); }); });
    print("the files' beginnings read in plain C", plain, images);
    print("tessaly-db upgrade", runTool({"upgrade", "--quiet", "--dsn", "Older"}), images);
    if (archive.filled() != images)
        throw std::runtime_error("not all images were filled");
    std::printf("%-44s %8.2f s\n", "the same again, which has nothing to do",
                runTool({"upgrade", "--quiet", "--dsn", "Older"}).seconds);
}

}  // namespace

int main(int argc, char** argv) {
    return tessaly::runBench([&] { measureFilling(argc > 1 ? std::atoi(argv[1]) : 100'000); });
}
