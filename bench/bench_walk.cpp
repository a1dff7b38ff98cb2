// How long it takes to walk the archive's images with one indexed look-up a row, as the database's repair
// does: through db/, and in plain C on SQLite. Each measurement is a process of its own, so that its peak of
// memory is its own too. Prints a table; judges nothing.

#include "bench/Bench.h"
#include "bench/Measure.h"
#include "db/Query.h"
#include "schema/Schema.h"

namespace {

using namespace tessaly;
using namespace tessaly::bench;

constexpr const char* Walk = "SELECT * FROM Image";
constexpr const char* LookUp = "SELECT SeriesDir FROM Series WHERE SeriesInstanceUID=?";
constexpr int Rounds = 5;
constexpr int ImagesPerSeries = 100;

/// One way of doing the work; the letters read.
using Way = std::size_t (*)(const std::string& file);

/// The look-up's statement is prepared once or anew for every row, as the ways of db/ beside it do.
template <bool Anew>
std::size_t walkPlain(const std::string& file) {
    enum ImageColumns { SOPInstanceUID, SeriesInstanceUID, ImageFile };
    sqlite3* handle = openPlain(file);
    sqlite3_stmt* images = prepare(handle, Walk);
    sqlite3_stmt* series = prepare(handle, LookUp);
    std::size_t letters = 0;
    while (sqlite3_step(images) == SQLITE_ROW) {
        letters += std::strlen(textOf(images, SOPInstanceUID)) + std::strlen(textOf(images, ImageFile));
        if (Anew) {
            sqlite3_finalize(series);
            series = prepare(handle, LookUp);
        }
        sqlite3_bind_text(series, 1, textOf(images, SeriesInstanceUID), -1, SQLITE_STATIC);
        requireOk(sqlite3_step(series), SQLITE_ROW, handle);
        letters += std::strlen(textOf(series, 0));
        sqlite3_reset(series);
    }
    sqlite3_finalize(series);
    sqlite3_finalize(images);
    sqlite3_close(handle);
    return letters;
}

std::size_t lookUp(db::Query& series, const std::string& uid) {
    series.bind(1, db::varchar(uid));
    auto row = series.open();
    if (!row.next())
        throw std::runtime_error("a series is missing");
    return row.text("SeriesDir").size();
}

template <bool Anew>
std::size_t walkThroughDb(const std::string& file) {
    db::Connection connection;
    connection.setConnectString(connectStringOf(file));
    connection.setCursorDriver(db::Connection::CursorDriver::DriverFirst);
    connection.establish();
    db::Query walk{connection, Walk};
    db::Query series{connection, LookUp};
    auto images = walk.open();
    std::size_t letters = 0;
    while (images.next()) {
        letters += images.text("SOPInstanceUID").size() + images.text("ImageFile").size();
        if (Anew) {
            db::Query another{connection, LookUp};
            letters += lookUp(another, images.text("SeriesInstanceUID"));
        } else {
            letters += lookUp(series, images.text("SeriesInstanceUID"));
        }
    }
    return letters;
}

void fill(const std::string& file, int images) {
    const std::string count = std::to_string(images);
    const std::string perSeries = std::to_string(ImagesPerSeries);
    const std::string numbers =
        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i+1<" + count + ") ";
    const std::string sql =
        std::string{schema::engine("SQLite").tables} + "; BEGIN; " + numbers +
        "INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile)"
        " SELECT '2.25.1234567890.1.'||i, '2.25.1234567890.2.'||(i/" +
        perSeries + "), 'IMAGE'||i||'.dcm' FROM n; " + numbers +
        "INSERT INTO Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir)"
        " SELECT '2.25.1234567890.2.'||i, '2.25.1234567890.3', 'SERIES'||i FROM n WHERE i*" +
        perSeries + "<" + count + "; COMMIT";
    sqlite3* handle = openPlain(file);
    runPlain(handle, sql);
    sqlite3_close(handle);
}

/// The fastest of some rounds: what else ran on the machine only ever adds. The ways take turns, so that it
/// adds to both.
void compare(const char* what, int rows, const std::string& file, Way plain, Way throughDb) {
    const auto once = [&file](Way way) {
        return inChild([&] { return measure([&] { return way(file); }); });
    };
    Result c = once(plain);
    Result db = once(throughDb);
    for (int round = 1; round < Rounds; ++round) {
        c = better(c, once(plain));
        db = better(db, once(throughDb));
    }
    if (c.proof != db.proof)
        throw std::runtime_error("the two ways did different work");
    std::printf("%9d  %-14s  %7.3f s  %5.1f MB   %7.3f s  %5.1f MB   %5.2f\n", rows, what, c.seconds,
                c.megabytes, db.seconds, db.megabytes, db.seconds / c.seconds);
    std::fflush(stdout);
}

}  // namespace

int main() {
    return tessaly::runBench([&] {
        const TemporaryFolder folder;
        std::printf("     rows  look-up            plain C              through db/          ratio\n");
        for (const int rows : {10'000, 100'000, 1'000'000}) {
            const std::string file = folder.path + "/" + std::to_string(rows) + ".mdb";
            (void)inChild([&] {
                fill(file, rows);
                return Result{};
            });
            compare("prepared once", rows, file, walkPlain<false>, walkThroughDb<false>);
            compare("anew each row", rows, file, walkPlain<true>, walkThroughDb<true>);
        }
    });
}
