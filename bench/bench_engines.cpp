// The long passes of the maintenance on PostgreSQL beside the same on SQLite, through the same code: the walk
// over all images, the repair with nothing to remove and with every tenth patient's files gone, and the
// relocation of studies, that beside one statement that does it all. The cluster is the tests' own; it
// flushes nothing, as SQLite flushes no single change under the pragmas that the console's data source has.
// Prints a table; judges nothing.
//
// bench_engines [IMAGES [STUDIES]]

#include <libpq-fe.h>
#include <spawn.h>

#include <QCoreApplication>
#include <functional>

#include "bench/Bench.h"
#include "bench/BigArchive.h"
#include "bench/Measure.h"
#include "db/Connection.h"
#include "maintenance/Relocation.h"
#include "maintenance/RepairChecks.h"
#include "maintenance/RowWalk.h"
#include "tests/support/ScratchCluster.h"

using namespace tessaly;
using namespace tessaly::bench;

namespace {

namespace fs = std::filesystem;

constexpr int Rounds = 2;
constexpr const char* NewRoot = "/mnt/images";

/// A pass on a connection; gives what it came to.
using Pass = std::function<std::size_t(const db::Connection&)>;

std::string serverString(const std::string& database) {
    return "Driver=PostgreSQL Unicode;Servername=" +
           test::ScratchCluster::instance().address().toStdString() + ";Database=" + database +
           ";Username=tessaly;CommLog=0;Debug=0";
}

void runServer(const std::string& database, const std::string& sql) {
    PGconn* session = PQconnectdb(
        test::ScratchCluster::instance().connection(QString::fromStdString(database)).constData());
    PQclear(PQexec(session, sql.c_str()));
    const std::string failure = PQerrorMessage(session);
    PQfinish(session);
    if (!failure.empty())
        throw std::runtime_error(failure);
}

void copyToServer(const std::string& folder, const std::string& file, const std::string& database) {
    const std::string ini = folder + "/odbc.ini";
    std::ofstream{ini} << "[From]\nDriver=SQLite3\nDatabase=" << file
                       << "\nStepAPI=1\n[To]\nDriver=PostgreSQL Unicode\nServername="
                       << test::ScratchCluster::instance().address().toStdString()
                       << "\nDatabase=" << database << "\nUsername=tessaly\nCommLog=0\nDebug=0\n";
    setenv("ODBCINI", ini.c_str(), 1);
    std::array<std::string, 7> words{TESSALY_DB, "copy", "--quiet", "--from", "From", "--to", "To"};
    std::array<char*, words.size() + 1> arguments{};
    std::transform(words.begin(), words.end(), arguments.begin(), [](auto& word) { return word.data(); });
    pid_t child = 0;
    int status = 0;
    if (posix_spawn(&child, TESSALY_DB, nullptr, nullptr, arguments.data(), environ) != 0 ||
        waitpid(child, &status, 0) != child || status != 0)
        throw std::runtime_error("tessaly-db copy failed");
    // As the server's own housekeeping leaves it.
    runServer(database, "VACUUM (ANALYZE) Patient, Study, Series, Image");
}

std::size_t walkImages(const db::Connection& connection) {
    maintenance::RowWalk walk{connection};
    walk.begin(
        "SELECT Image.SOPInstanceUID, Study.StudyPath || '\\' || Series.SeriesDir || '\\' || Image.ImageFile "
        "AS Holds FROM Image LEFT JOIN Series ON Series.SeriesInstanceUID=Image.SeriesInstanceUID "
        "LEFT JOIN Study ON Study.StudyInstanceUID=Series.StudyInstanceUID");
    std::size_t letters = 0;
    while (walk.rows().next())
        letters += walk.rows().text("SOPInstanceUID").size() + walk.rows().text("Holds").size();
    return letters;
}

/// The four checks without a window; what is left of the rows.
std::size_t repair(const db::Connection& connection) {
    using maintenance::Check;
    maintenance::NoProgress progress;
    (void)maintenance::countArchiveRows(connection);
    for (const Check check : {Check::Images, Check::Series, Check::Studies, Check::Patients})
        maintenance::RepairCheck{check}.run(connection, progress);
    return static_cast<std::size_t>(maintenance::countArchiveRows(connection));
}

Result run(const std::string& connectString, const Pass& pass) {
    return inChild([&] {
        db::Connection connection;
        connection.setConnectString(connectString);
        connection.setCursorDriver(db::Connection::CursorDriver::DriverFirst);
        connection.establish();
        return measure([&] { return pass(connection); });
    });
}

Result onFile(const std::string& database, const Pass& pass) {
    const std::string copy = database + ".copy.mdb";
    fs::copy_file(database, copy, fs::copy_options::overwrite_existing);
    sync();
    return run(connectStringOf(copy), pass);
}

/// What `work` makes of a copy of the database.
Result onServerCopy(const std::string& database, const std::function<Result(const std::string&)>& work) {
    const auto& cluster = test::ScratchCluster::instance();
    cluster.administer(
        QString::fromStdString("CREATE DATABASE copied TEMPLATE " + database + " OWNER tessaly"));
    const Result result = work("copied");
    cluster.administer(QStringLiteral("DROP DATABASE copied"));
    return result;
}

Result onServer(const std::string& database, const Pass& pass) {
    return onServerCopy(database, [&](const auto& copy) { return run(serverString(copy), pass); });
}

Result best(const std::function<Result()>& once) {
    Result result = once();
    for (int round = 1; round < Rounds; ++round)
        result = better(result, once());
    return result;
}

void print(const char* what, int rows, const Result& file, const Result& server) {
    if (file.proof != server.proof)
        throw std::runtime_error("the two engines came to something else");
    std::printf("%9d  %-22s  %7.2f s  %5.1f MB   %7.2f s  %5.1f MB   %5.2f\n", rows, what, file.seconds,
                file.megabytes, server.seconds, server.megabytes, server.seconds / file.seconds);
    std::fflush(stdout);
}

void compare(const char* what, int rows, const std::string& file, const std::string& server,
             const Pass& pass) {
    print(what, rows, best([&] { return onFile(file, pass); }), best([&] { return onServer(server, pass); }));
}

void compareArchives(const std::string& folder, int images) {
    const BigArchive archive{folder + "/archive.mdb", folder + "/files", images};
    (void)inChild([&] {
        archive.writeTables();
        archive.writeFiles();
        return Result{};
    });
    const std::string server = test::ScratchCluster::instance().makeDatabase(false).toStdString();
    copyToServer(folder, archive.database, server);
    compare("walk over the images", images, archive.database, server, walkImages);
    compare("repair, nothing", images, archive.database, server, repair);
    archive.loseFiles();
    compare("repair, one in ten", images, archive.database, server, repair);
}

void compareRelocation(const std::string& folder, int studies) {
    constexpr int ImagesPerStudy = BigArchive::ImagesPerSeries * BigArchive::SeriesPerStudy;
    const BigArchive archive{folder + "/studies.mdb", "/srv/archive", studies * ImagesPerStudy};
    (void)inChild([&] {
        archive.writeStudies();
        return Result{};
    });
    const std::string server = test::ScratchCluster::instance().makeDatabase(false).toStdString();
    copyToServer(folder, archive.database, server);
    const Pass relocate = [&](const db::Connection& connection) {
        maintenance::NoProgress progress;
        maintenance::Relocation{QString::fromStdString(archive.root), QString::fromLatin1(NewRoot)}.run(
            connection, progress);
        return std::size_t{0};
    };
    compare("relocation", studies, archive.database, server, relocate);
    const Result statement = best([&] {
        return onServerCopy(server, [&](const auto& copy) {
            return inChild([&] {
                return measure([&] {
                    runServer(copy, std::string{"UPDATE Study SET StudyPath='"} + NewRoot +
                                        "'||substr(StudyPath," + std::to_string(archive.root.size() + 1) +
                                        ")");
                    return std::size_t{0};
                });
            });
        });
    });
    const Result rows = best([&] { return onServer(server, relocate); });
    std::printf("%9d  %-22s  one statement by libpq %.2f s, the console %.2f s, ratio %.2f\n", studies,
                "relocation, PostgreSQL", statement.seconds, rows.seconds, rows.seconds / statement.seconds);
}

}  // namespace

int main(int argc, char** argv) {
    const QCoreApplication application{argc, argv};
    return tessaly::runBench([&] {
        const TemporaryFolder folder;
        std::printf("     rows  pass                    SQLite               PostgreSQL           ratio\n");
        compareArchives(folder.path, argc > 1 ? std::atoi(argv[1]) : 1'000'000);
        compareRelocation(folder.path, argc > 2 ? std::atoi(argv[2]) : 100'000);
    });
}
