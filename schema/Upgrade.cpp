#include "schema/Upgrade.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "base/Text.h"
#include "db/Query.h"
#include "db/Transaction.h"
#include "schema/Catalogue.h"
#include "schema/BackfillMark.h"

namespace tessaly::schema {

namespace {

[[noreturn]] void refuseNewer(int version, int known) {
    throw std::runtime_error("The tables are of version " + std::to_string(version) +
                             ", newer than the version " + std::to_string(known) +
                             " that this program knows");
}

/// An empty database, or another program's, is none that an upgrade may fill: nobody could log in to it.
void requireAnyTable(const Catalogue& expected, const Catalogue& actual) {
    const auto isThere = [&actual](const auto& table) { return actual.contains(table.first); };
    if (std::none_of(expected.begin(), expected.end(), isThere))
        throw std::runtime_error("The database has none of the tables: tessaly-db create makes them");
}

/// Adds what can be added, and gives the lines that say so.
class Completion {
  public:
    Completion(const db::Connection& connection, const Definitions& definitions)
        : connection_(connection), definitions_(definitions) {}

    std::vector<std::string> run(const std::vector<Lack>& missing) {
        if (missing.empty())
            return {};
        for (const auto& statement : definitions_.before)
            db::execute(connection_, statement);
        for (const auto& lack : missing)  // indexes last: they may be of columns that are new
            addTableOrColumn(lack);
        for (const auto& lack : missing)
            addIndexes(lack);
        return std::move(done_);
    }

  private:
    void addTableOrColumn(const Lack& lack) {
        const Table& table = *findTable(definitions_, lack.table);
        if (lack.fact.empty()) {
            db::execute(connection_, table.statement);
            done_.push_back("Made the table " + table.name);
        }
        for (const auto& column : table.columns) {
            if (factOf(column) != lack.fact)
                continue;
            db::execute(connection_, "ALTER TABLE " + table.name + " ADD COLUMN " + column.definition);
            done_.push_back(table.name + ": added " + lack.fact);
        }
    }

    void addIndexes(const Lack& lack) {
        const Table& table = *findTable(definitions_, lack.table);
        for (const auto& index : definitions_.indexes) {
            if (index.table != table.name || (!lack.fact.empty() && lack.fact != factOf(table, index)))
                continue;
            db::execute(connection_, index.statement);
            done_.push_back(table.name + ": added " + factOf(table, index));
        }
    }

    const db::Connection& connection_;
    const Definitions& definitions_;
    std::vector<std::string> done_;
};

/// The mark beside the version stays; before there was one, nothing had been filled or was to be.
void writeVersion(const db::Connection& connection, int version) {
    const std::string table{VersionTable};
    db::Query query{connection, "SELECT Version FROM " + table};
    const bool isThere = query.open().next();
    db::execute(
        connection,
        isThere ? "UPDATE " + table + " SET Version=?" : "INSERT INTO " + table + " (Version) VALUES (?)",
        {db::integer(version)});
}

/// They have the columns by which a study's series and a series' images are in order, in all three of them.
void dropNarrowIndexes(const db::Connection& connection) {
    for (const char* index : {"StudyByPatient", "ImageBySeries"})
        db::execute(connection, std::string{"DROP INDEX IF EXISTS "} + index);
}

void markOlderRows(const db::Connection& connection) {
    setFilledTo(connection, "");
}

}  // namespace

std::span<const Step> steps() {
    static const std::array Steps{
        Step{.version = 2, .about = "the tables have a version", .fill = {}},
        Step{.version = 3,
             .about = "queries find objects by all their keys",
             .fill = markOlderRows,
             .prepare = dropNarrowIndexes},
        Step{.version = 4, .about = "the server has jobs, and knows how large its files are", .fill = {}},
    };
    return Steps;
}

int currentVersion() {
    return steps().back().version;
}

int version(const db::Connection& connection) {
    constexpr int BeforeVersions = 1;
    if (!connection.hasTable(VersionTable))
        return BeforeVersions;
    db::Query query{connection, "SELECT Version FROM " + std::string{VersionTable}};
    int highest = BeforeVersions;
    for (auto rows = query.open(); rows.next();)
        highest = std::max(highest, static_cast<int>(rows.integer("Version")));
    return highest;
}

std::vector<std::string> upgrade(const db::Connection& connection, std::span<const Step> steps) {
    const auto all = definitions(engine(connection));
    const auto expected = expectedCatalogue(all);
    const int known = steps.back().version;

    const auto actual = readCatalogue(connection);
    requireAnyTable(expected, actual);
    if (version(connection) == known && lacks(expected, actual).empty())
        return {};
    const bool hasVersions = connection.hasTable(VersionTable);
    db::Transaction transaction{connection};
    // First a statement that writes, if only nothing: it waits for a server that stores. A transaction that
    // begins by reading and finds that another has written since would fail at once instead.
    if (hasVersions)
        db::execute(connection, "UPDATE " + std::string{VersionTable} + " SET Version=Version");
    const int found = version(connection);
    if (found > known)
        refuseNewer(found, known);
    for (const auto& step : steps)
        if (step.version > found && step.prepare)
            step.prepare(connection);
    auto done = Completion{connection, all}.run(lacks(expected, readCatalogue(connection)));
    if (found < known)
        writeVersion(connection, known);
    for (const auto& step : steps) {
        if (step.version <= found)
            continue;
        if (step.fill)
            step.fill(connection);
        done.push_back("Version " + std::to_string(step.version) + ": " + std::string{step.about});
    }
    if (const auto left = lacks(expected, readCatalogue(connection)); !left.empty())
        throw std::runtime_error(left.front().text() +
                                 ", which cannot be added: copy the database into a new one instead");
    if (done.empty())
        return done;
    transaction.commit();
    return done;
}

void fill(const db::Connection& connection, int from) {
    for (const auto& step : steps())
        if (step.version > from && step.fill)
            step.fill(connection);
}

void requireUpgraded(const db::Connection& connection, std::initializer_list<std::string_view> tables) {
    if (!isKnown(connection))
        return;
    if (const int found = version(connection); found > currentVersion())
        refuseNewer(found, currentVersion());
    const auto expected = expectedCatalogue(definitions(engine(connection)));
    for (const auto& lack : lacks(expected, readCatalogue(connection))) {
        const bool wanted = std::any_of(tables.begin(), tables.end(), [&](std::string_view table) {
            return base::sameName(table, lack.table);
        });
        if (wanted && (lack.fact.empty() || lack.fact.starts_with("the column ")))
            throw std::runtime_error(lack.text() + ": run tessaly-db upgrade");
    }
}

}  // namespace tessaly::schema
