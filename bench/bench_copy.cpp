// The copying of an archive of 1,000,000 images by tessaly-db, beside the same rows copied in plain C: in one
// transaction on SQLite, and by COPY on PostgreSQL. The server's cluster is the tests' own: it flushes
// nothing.
#include <fcntl.h>
#include <libpq-fe.h>

#include <QCoreApplication>
#include <array>
#include <cstdio>
#include <memory>

#include "bench/Bench.h"
#include "bench/BigArchive.h"
#include "bench/Measure.h"
#include "bench/Tool.h"
#include "schema/Definitions.h"
#include "tests/support/ScratchCluster.h"

namespace {

using namespace tessaly;
using namespace tessaly::bench;
namespace fs = std::filesystem;

constexpr int Images = 1'000'000;

std::string columnsOf(const schema::Table& table, const char* with) {
    std::string list;
    for (const auto& column : table.columns)
        if (!column.generated)
            list.append(list.empty() ? "" : ", ").append(with[0] != '\0' ? with : column.name);
    return list;
}

template <class Row>
void walk(sqlite3* source, const schema::Table& table, Row row) {
    sqlite3_stmt* rows = prepare(source, ("SELECT " + columnsOf(table, "") + " FROM " + table.name).c_str());
    while (sqlite3_step(rows) == SQLITE_ROW)
        row(rows);
    sqlite3_finalize(rows);
}

/// What a program in plain C would do: the tables, all rows, then the indexes that refuse none; one
/// transaction, one flush at the end.
std::size_t copyPlainly(const std::string& from, const std::string& to) {
    sqlite3* source = openPlain(from);
    sqlite3* target = openPlain(to);
    const auto definitions = schema::definitions(schema::engine("SQLite"));
    runPlain(target, "PRAGMA synchronous=OFF; BEGIN");
    for (const auto& table : definitions.tables)
        runPlain(target, table.statement);
    std::size_t count = 0;
    for (const auto& table : definitions.tables) {
        const std::string sql = "INSERT INTO " + table.name + " (" + columnsOf(table, "") + ") VALUES (" +
                                columnsOf(table, "?") + ")";
        sqlite3_stmt* insert = prepare(target, sql.c_str());
        walk(source, table, [&](sqlite3_stmt* row) {
            for (int i = 0; i < sqlite3_column_count(row); ++i)
                sqlite3_bind_value(insert, i + 1, sqlite3_column_value(row, i));
            requireOk(sqlite3_step(insert), SQLITE_DONE, target);
            sqlite3_reset(insert);
            ++count;
        });
        sqlite3_finalize(insert);
    }
    for (const auto& index : definitions.indexes)
        runPlain(target, index.statement);
    runPlain(target, "COMMIT");
    sqlite3_close(target);
    sqlite3_close(source);
    const int file = open(to.c_str(), O_RDWR);
    fsync(file);
    close(file);
    return count;
}

void runServer(PGconn* session, const std::string& sql) {
    PQclear(PQexec(session, sql.c_str()));
    if (PQerrorMessage(session)[0] != '\0')
        throw std::runtime_error(PQerrorMessage(session));
}

/// The rows have no backslash and no tabulator that COPY would want escaped but the paths' own.
std::string escaped(const char* text) {
    std::string result;
    for (; text != nullptr && *text != '\0'; ++text)
        result.append(*text == '\\' ? 2 : 1, *text);
    return text == nullptr ? "\\N" : result;
}

std::size_t copyByCopy(const std::string& from, const std::string& to) {
    sqlite3* source = openPlain(from);
    PGconn* session = PQconnectdb(to.c_str());
    const auto definitions = schema::definitions(schema::engine("SQLite"));
    runServer(session, "BEGIN");
    runServer(session, std::string{schema::engine("PostgreSQL").tables});
    runServer(session, "DELETE FROM SchemaVersion");
    std::size_t count = 0;
    for (const auto& table : definitions.tables) {
        runServer(session, "COPY " + table.name + " (" + columnsOf(table, "") + ") FROM STDIN");
        walk(source, table, [&](sqlite3_stmt* row) {
            std::string line;
            for (int i = 0; i < sqlite3_column_count(row); ++i)
                line.append(i == 0 ? "" : "\t").append(escaped(textOf(row, i)));
            line += '\n';
            PQputCopyData(session, line.data(), static_cast<int>(line.size()));
            ++count;
        });
        PQputCopyEnd(session, nullptr);
        while (PGresult* result = PQgetResult(session)) {
            if (PQresultStatus(result) != PGRES_COMMAND_OK)
                throw std::runtime_error(PQerrorMessage(session));
            PQclear(result);
        }
    }
    runServer(session, "COMMIT");
    PQfinish(session);
    sqlite3_close(source);
    return count;
}

/// The bytes that a server's database takes, and those of the images' table and its indexes.
std::array<double, 2> sizesOf(const std::string& database) {
    PGconn* session = PQconnectdb(database.c_str());
    PGresult* row =
        PQexec(session, "SELECT pg_database_size(current_database()), pg_total_relation_size('image')");
    const std::array<double, 2> sizes{std::atof(PQgetvalue(row, 0, 0)), std::atof(PQgetvalue(row, 0, 1))};
    PQclear(row);
    PQfinish(session);
    return sizes;
}

void printSize(const char* what, double bytes) {
    std::printf("%-40s %7.0f MB %6.0f bytes an image\n", what, bytes / 1e6, bytes / Images);
}

void print(const char* what, const Result& result, double beside) {
    std::printf("%-40s %7.1f s %5.1f times %7.1f s of processor time %5.0f MB\n", what, result.seconds,
                result.seconds / beside, result.processor, result.megabytes);
    std::fflush(stdout);
}

void measureAll() {
    const TemporaryFolder folder;
    const BigArchive archive{.database = folder.path + "/from.mdb", .root = "/images", .images = Images};
    archive.writeTables();
    auto& cluster = test::ScratchCluster::instance();
    const auto plain = cluster.makeDatabase(false);
    const auto own = cluster.makeDatabase(false);

    const std::string ini = folder.path + "/odbc.ini";
    std::ofstream{ini}
        << "[From]\nDriver=SQLite3\nDatabase=" << archive.database
        << "\nStepAPI=1\n[File]\nDriver=SQLite3\nDatabase=" << folder.path
        << "/to.mdb\nStepAPI=1\nJournalMode=WAL\n[Server]\nDriver=PostgreSQL Unicode\nServername="
        << cluster.address().toStdString() << "\nDatabase=" << own.toStdString()
        << "\nUsername=tessaly\nCommLog=0\nDebug=0\n[Back]\nDriver=SQLite3\nDatabase=" << folder.path
        << "/back.mdb\nStepAPI=1\nJournalMode=WAL\n";
    setenv("ODBCINI", ini.c_str(), 1);

    const auto c = inChild(
        [&] { return measure([&] { return copyPlainly(archive.database, folder.path + "/plain.mdb"); }); });
    const auto copy = inChild([&] {
        return measure([&] { return copyByCopy(archive.database, cluster.connection(plain).toStdString()); });
    });
    std::printf("%d images, %zu rows\n", Images, c.proof);
    print("SQLite to SQLite, plain C", c, c.seconds);
    print("SQLite to SQLite, tessaly-db copy", runTool({"copy", "--quiet", "--from", "From", "--to", "File"}),
          c.seconds);
    print("SQLite to PostgreSQL, COPY", copy, copy.seconds);
    print("SQLite to PostgreSQL, dry run",
          runTool({"copy", "--quiet", "--from", "From", "--to", "Server", "--dry-run"}), copy.seconds);
    print("SQLite to PostgreSQL, tessaly-db copy",
          runTool({"copy", "--quiet", "--from", "From", "--to", "Server"}), copy.seconds);
    print("PostgreSQL to SQLite, tessaly-db copy",
          runTool({"copy", "--quiet", "--from", "Server", "--to", "Back"}), c.seconds);
    printSize("The file", static_cast<double>(fs::file_size(folder.path + "/to.mdb")));
    const auto sizes = sizesOf(cluster.connection(own).toStdString());
    printSize("The server's database", sizes[0]);
    printSize("Of it, the images with their indexes", sizes[1]);
    print("Compaction of the file, tessaly-db compact", runTool({"compact", "--dsn", "File"}), c.seconds);
    print("Compaction of the server's database", runTool({"compact", "--dsn", "Server"}), c.seconds);
    const auto compacted = sizesOf(cluster.connection(own).toStdString());
    printSize("The server's database, compacted", compacted[0]);
    const std::string dump = folder.path + "/server.dump";
    const std::string line = "pg_dump --format=custom --file=" + dump + " --dbname=\"" +
                             cluster.connection(own).toStdString() + "\"";
    print("Backup of the server's database, pg_dump",
          measure([&] { return static_cast<std::size_t>(std::system(line.c_str())); }), c.seconds);
    printSize("That backup", static_cast<double>(fs::file_size(dump)));
    const auto backup = runTool({"backup", "--dsn", "File", folder.path + "/backup.mdb"});
    print("Backup of the file, tessaly-db backup", backup, c.seconds);
    runPlain(openPlain(folder.path + "/to.mdb"), "DROP TABLE SchemaVersion; DROP INDEX ImageBySeries");
    print("Upgrade of the file that lacks an index", runTool({"upgrade", "--dsn", "File"}), c.seconds);
}

}  // namespace

int main(int argc, char** argv) {
    const QCoreApplication application{argc, argv};
    return tessaly::runBench([&] { measureAll(); });
}
