// How long it takes to walk the archive's images with one indexed look-up a row, as the database's repair
// does: through db/, and in plain C on SQLite. Each measurement is a process of its own, so that its peak of
// memory is its own too. Prints a table; judges nothing.

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "db/Query.h"
#include "schema/Schema.h"

namespace {

using namespace tessaly;

constexpr const char* Walk = "SELECT * FROM Image";
constexpr const char* LookUp = "SELECT SeriesDir FROM Series WHERE SeriesInstanceUID=?";
constexpr int Rounds = 5;
constexpr int ImagesPerSeries = 100;

/// What a child hands back to its parent.
struct Result {
    double seconds = 0;
    double megabytes = 0;     ///< the process's peak of memory
    std::size_t letters = 0;  ///< read in all: the proof that each way did the same work
};

/// One way of doing the work; the letters read.
using Way = std::size_t (*)(const std::string& file);

void requireOk(int result, int expected, sqlite3* handle) {
    if (result != expected)
        throw std::runtime_error(sqlite3_errmsg(handle));
}

sqlite3* openPlain(const std::string& file) {
    sqlite3* handle = nullptr;
    requireOk(sqlite3_open(file.c_str(), &handle), SQLITE_OK, handle);
    return handle;
}

sqlite3_stmt* prepare(sqlite3* handle, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    requireOk(sqlite3_prepare_v2(handle, sql, -1, &statement, nullptr), SQLITE_OK, handle);
    return statement;
}

const char* textOf(sqlite3_stmt* statement, int column) {
    return reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
}

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
    connection.setConnectString("Driver=SQLite3;StepAPI=1;JournalMode=WAL;SyncPragma=NORMAL;Database=" +
                                file);
    connection.setCursorDriver(db::Connection::CursorDriver::Odbc);
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
    requireOk(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK, handle);
    sqlite3_close(handle);
}

/// The kernel's count for this process alone.
double peakMegabytes() {
    std::ifstream status{"/proc/self/status"};
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return std::strtod(line.c_str() + std::strlen("VmHWM:"), nullptr) / 1024;
    throw std::runtime_error("no VmHWM");
}

Result measure(Way way, const std::string& file) {
    const auto start = std::chrono::steady_clock::now();
    const auto letters = way(file);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    return {.seconds = time.count(), .megabytes = peakMegabytes(), .letters = letters};
}

/// Does the work in a child. It starts from a parent that has allocated next to nothing.
template <class Work>
Result inChild(Work work) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0) {
        Result result;
        try {
            result = work();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
            _exit(1);
        }
        _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
    }
    close(ends[1]);
    Result result;
    const bool whole = read(ends[0], &result, sizeof result) == sizeof result;
    close(ends[0]);
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0 || !whole)
        throw std::runtime_error("a measurement failed");
    return result;
}

/// The fastest of some rounds: what else ran on the machine only ever adds. The ways take turns, so that it
/// adds to both.
void compare(const char* what, int rows, const std::string& file, Way plain, Way throughDb) {
    Result c{.seconds = HUGE_VAL};
    Result db{.seconds = HUGE_VAL};
    const auto improve = [&file](Result& best, Way way) {
        const Result next = inChild([&] { return measure(way, file); });
        best = {.seconds = std::min(best.seconds, next.seconds),
                .megabytes = std::max(best.megabytes, next.megabytes),
                .letters = next.letters};
    };
    for (int round = 0; round < Rounds; ++round) {
        improve(c, plain);
        improve(db, throughDb);
    }
    if (c.letters != db.letters)
        throw std::runtime_error("the two ways did different work");
    std::printf("%9d  %-14s  %7.3f s  %5.1f MB   %7.3f s  %5.1f MB   %5.2f\n", rows, what, c.seconds,
                c.megabytes, db.seconds, db.megabytes, db.seconds / c.seconds);
    std::fflush(stdout);
}

struct TemporaryFolder {
    std::string path = (std::filesystem::temp_directory_path() / "walk.XXXXXX").string();
    TemporaryFolder() {
        if (mkdtemp(path.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
};

}  // namespace

int main() {
    try {
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
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_walk: %s\n", error.what());
        return 1;
    }
}
