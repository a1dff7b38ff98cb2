// The compaction of a large archive's database beside the engine's own VACUUM INTO of the same file, and the
// relocation of its studies beside plain C on SQLite that runs the same statements. Prints a table; judges
// nothing.
//
// bench_maintenance [IMAGES [STUDIES]]

#include "bench/Bench.h"
#include "bench/BigArchive.h"
#include "bench/Measure.h"
#include "db/Connection.h"
#include "maintenance/FileCompaction.h"
#include "maintenance/Relocation.h"

using namespace tessaly;
using namespace tessaly::bench;

namespace {

namespace fs = std::filesystem;

constexpr int Rounds = 5;
constexpr const char* OldRoot = "/srv/archive";
constexpr const char* NewRoot = "/mnt/images";

/// The fastest of some rounds, each on a fresh copy; the ways take turns, so that they meet the same machine.
template <class Plain, class Own>
void compare(const char* what, int rows, const std::string& database, Plain plain, Own own) {
    const std::string copy = fs::path{database}.replace_filename("copy.mdb");
    const auto once = [&](auto way) {
        fs::remove(fs::path{database}.replace_filename("copy2.mdb"));
        fs::copy_file(database, copy, fs::copy_options::overwrite_existing);
        sync();  // what the copying left to be written is not to be waited for by whoever flushes first
        return inChild([&] { return measure([&] { return way(copy); }); });
    };
    Result c = once(plain);
    Result console = once(own);
    for (int round = 1; round < Rounds; ++round) {
        c = better(c, once(plain));
        console = better(console, once(own));
    }
    if (c.proof != console.proof)
        throw std::runtime_error("the two ways did different work");
    std::printf("%8d  %-10s  %6.3f s  %6.3f s of processor   %6.3f s  %6.3f s of processor   %5.2f  %5.2f\n",
                rows, what, c.seconds, c.processor, console.seconds, console.processor,
                console.seconds / c.seconds, console.processor / c.processor);
    std::fflush(stdout);
}

std::size_t vacuumPlain(const std::string& database) {
    const std::string target = fs::path{database}.replace_filename("copy2.mdb");
    sqlite3* handle = openPlain(database);
    runPlain(handle, "VACUUM INTO '" + target + "'");
    sqlite3_close(handle);
    return fs::file_size(target);
}

std::size_t compactOwn(const std::string& database) {
    maintenance::NoProgress progress;
    maintenance::FileCompaction{database}.run(db::Connection{}, progress);
    return fs::file_size(database);
}

std::size_t relocatedRows(const std::string& database) {
    sqlite3* handle = openPlain(database);
    const std::string sql = std::string{"SELECT count(*) FROM Study WHERE StudyPath LIKE '"} + NewRoot + "%'";
    sqlite3_stmt* count = prepare(handle, sql.c_str());
    requireOk(sqlite3_step(count), SQLITE_ROW, handle);
    const auto rows = static_cast<std::size_t>(sqlite3_column_int64(count, 0));
    sqlite3_finalize(count);
    sqlite3_close(handle);
    return rows;
}

std::size_t relocatePlain(const std::string& database) {
    sqlite3* handle = openPlain(database);
    runPlain(handle, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL");
    sqlite3_stmt* walk = prepare(handle, "SELECT * FROM Study ORDER BY STUDYINSTANCEUID");
    sqlite3_stmt* update = prepare(handle, "UPDATE Study set STUDYPATH=? WHERE STUDYINSTANCEUID=?");
    const std::size_t length = std::strlen(OldRoot);
    while (sqlite3_step(walk) == SQLITE_ROW) {
        const char* path = textOf(walk, 2);
        if (strncasecmp(path, OldRoot, length) != 0)
            continue;
        const std::string moved = std::string{NewRoot} + (path + length);
        sqlite3_bind_text(update, 1, moved.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(update, 2, textOf(walk, 0), -1, SQLITE_TRANSIENT);
        requireOk(sqlite3_step(update), SQLITE_DONE, handle);
        sqlite3_reset(update);
    }
    sqlite3_finalize(update);
    sqlite3_finalize(walk);
    sqlite3_close(handle);
    return relocatedRows(database);
}

std::size_t relocateOwn(const std::string& database) {
    {
        db::Connection connection;
        connection.setConnectString(connectStringOf(database));
        connection.setCursorDriver(db::Connection::CursorDriver::DriverFirst);
        connection.establish();
        maintenance::NoProgress progress;
        maintenance::Relocation{QString::fromLatin1(OldRoot), QString::fromLatin1(NewRoot)}.run(connection,
                                                                                                progress);
    }
    return relocatedRows(database);
}

/// Writes the database in a child, so that this process stays small, and gives its file.
std::string write(const BigArchive& archive, void (BigArchive::*tables)() const) {
    (void)inChild([&] {
        (archive.*tables)();
        return Result{};
    });
    return archive.database;
}

}  // namespace

int main(int argc, char** argv) {
    const int images = argc > 1 ? std::atoi(argv[1]) : 1'000'000;
    const int studies = argc > 2 ? std::atoi(argv[2]) : 100'000;
    return tessaly::runBench([&] {
        const TemporaryFolder folder;
        std::printf(
            "    rows  work        plain C                          console                     "
            "     ratios\n");
        compare("compaction", images,
                write({folder.path + "/images.mdb", OldRoot, images}, &BigArchive::writeTables), vacuumPlain,
                compactOwn);
        constexpr int ImagesPerStudy = BigArchive::ImagesPerSeries * BigArchive::SeriesPerStudy;
        compare("relocation", studies,
                write({folder.path + "/studies.mdb", OldRoot, studies * ImagesPerStudy},
                      &BigArchive::writeStudies),
                relocatePlain, relocateOwn);
    });
}
