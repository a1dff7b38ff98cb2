#include "tessaly-db/Copy.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "base/Number.h"
#include "base/Text.h"
#include "db/Error.h"
#include "schema/BackfillMark.h"
#include "schema/Upgrade.h"
#include "tessaly-db/BatchInsert.h"
#include "tessaly-db/Source.h"
#include "tessaly-db/Target.h"

namespace tessaly::tool {

namespace {

constexpr long long RowsBetweenEvents = 1000;

/// Where paths of the archive stand.
constexpr std::array<std::pair<std::string_view, std::string_view>, 2> Paths{
    {{"Port", "Root"}, {"Study", "StudyPath"}}};

bool isPath(const schema::Table& table, const schema::Column& column) {
    return std::any_of(Paths.begin(), Paths.end(), [&](const auto& path) {
        return table.name == path.first && column.name == path.second;
    });
}

/// Two servers would do each job twice: they stay with the source.
bool isOfJobs(const schema::Table& table) {
    return table.name == "Job" || table.name == "JobItem";
}

/// The version is the target's own row; a source's says nothing of the copy.
bool isCopied(const schema::Table& table) {
    return table.name != schema::VersionTable && !isOfJobs(table);
}

class Copying {
  public:
    Copying(const CopyRequest& wish, const CopyEvents& events)
        : wish_(wish), events_(events), source_(wish.from), target_(wish.to) {}

    std::vector<CopiedTable> run() {
        const int version = sourceVersion();
        countRows();
        target_.makeTables();
        std::vector<CopiedTable> tables;
        for (const auto& table : target_.definitions().tables)
            if (isCopied(table))
                tables.push_back(copyTable(table));
        if (const long long jobs = jobsLeftOut(); jobs > 0)
            tables.front().notes.push_back("The server's jobs are left out: " + std::to_string(jobs));
        source_.requireUnchanged();
        schema::fill(target_.connection(), version);
        const auto filledTo = source_.isKnown() ? schema::filledTo(source_.connection()) : std::string{};
        schema::setFilledTo(target_.connection(), filledTo);
        if (filledTo)
            tables.front().notes.emplace_back(
                "Older rows lack what queries need of them: an upgrade of the copy fills them");
        target_.makeIndexes();
        if (!wish_.dryRun) {
            events_.keeps();
            target_.keep();
        }
        return tables;
    }

  private:
    [[nodiscard]] int sourceVersion() const {
        if (!source_.isKnown())
            return 1;
        const int version = schema::version(source_.connection());
        if (version > schema::currentVersion())
            throw std::runtime_error("The tables of " + wish_.from + " are of version " +
                                     std::to_string(version) + ", newer than the version " +
                                     std::to_string(schema::currentVersion()) + " that this program knows");
        return version;
    }

    [[nodiscard]] long long jobsLeftOut() const {
        return source_.columns("Job") ? source_.count("Job").value_or(0) : 0;
    }

    void countRows() const {
        long long rows = 0;
        bool any = false;
        for (const auto& table : target_.definitions().tables) {
            if (!isCopied(table) || !source_.columns(table.name))
                continue;
            any = true;
            rows += source_.count(table.name).value_or(0);
        }
        if (!any)
            throw std::runtime_error("The data source " + wish_.from + " has none of the tables");
        events_.begins(rows);
    }

    CopiedTable copyTable(const schema::Table& table) {
        CopiedTable result{.name = table.name, .source = {}, .target = {}, .notes = {}};
        const auto names = source_.columns(table.name);
        if (!names) {
            result.notes.emplace_back("The source has no table " + table.name);
            return result;
        }
        const Columns columns = common(table, *names, result.notes);
        if (columns.empty())
            return result;
        try {
            copyRows(table, columns, result.source);
            if (!wish_.dryRun)
                result.target = digest(table, columns);
        } catch (const db::Stopped&) {
            throw;
        } catch (const db::Error& error) {  // an engine's own word does not always name the table
            throw std::runtime_error(table.name + ": " + error.what());
        }
        if (!wish_.dryRun && result.source != result.target)
            throw std::runtime_error("The copy of " + table.name + " is not what was read: " +
                                     std::to_string(result.source.rows()) + " rows (" + result.source.text() +
                                     ") became " + std::to_string(result.target.rows()) + " (" +
                                     result.target.text() + "); nothing was written");
        return result;
    }

    /// The columns that both have; what one of them has alone is noted.
    static Columns common(const schema::Table& table, const std::vector<std::string>& names,
                          std::vector<std::string>& notes) {
        const auto isThere = [&names](const schema::Column& column) {
            return std::any_of(names.begin(), names.end(),
                               [&](const std::string& name) { return base::sameName(name, column.name); });
        };
        Columns columns;
        for (const auto& column : table.columns) {
            if (column.generated)
                continue;
            if (isThere(column))
                columns.push_back(&column);
            else
                notes.push_back(table.name + ": the source has no column " + column.name);
        }
        for (const auto& name : names)
            if (schema::findColumn(table, name) == nullptr)
                notes.push_back(table.name + ": the source's column " + name + " is left out");
        return columns;
    }

    void copyRows(const schema::Table& table, const Columns& columns, Digest& digest) {
        const auto expected = source_.count(table.name);
        BatchInsert::Refused refused;
        if (wish_.dryRun)
            refused = [&](const Row& row, const std::string& why) { misfit(table, columns, row, why); };
        BatchInsert insert{target_.connection(), table, columns, std::move(refused)};
        db::Query query{source_.connection(), "SELECT * FROM " + table.name};
        Row row;
        long long read = 0;
        auto rows = query.open();
        const auto places = placesOf(columns, rows);
        for (; rows.next(); ++read) {
            readRow(rows, places, row);
            if (const auto why = prepare(table, columns, row); !why.empty()) {
                misfit(table, columns, row, why);
            } else {
                digest.add(row);
                insert.add(row);
            }
            if (++done_ % RowsBetweenEvents == 0)
                events_.goesOn(table.name, done_);
        }
        insert.finish();
        events_.goesOn(table.name, done_);
        if (expected && *expected != read)  // a driver may give the end of the data where it lost the rest
            throw std::runtime_error(table.name + ": the source gave " + std::to_string(read) + " of " +
                                     std::to_string(*expected) + " rows");
    }

    /// The row as the target is to have it; what keeps it from fitting.
    [[nodiscard]] std::string prepare(const schema::Table& table, const Columns& columns, Row& row) const {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            if (row[i] && isPath(table, *columns[i]))
                *row[i] = wish_.map.mapped(*row[i]);
            if (auto why = unfit(row[i], *columns[i], engine_); !why.empty())
                return why;
        }
        return {};
    }

    void misfit(const schema::Table& table, const Columns& columns, const Row& row,
                const std::string& why) const {
        const auto sentence = nameOf(table, columns, row) + ": " + why;
        if (!wish_.dryRun)
            throw std::runtime_error(sentence +
                                     "; nothing was written, and --dry-run lists all that does not fit");
        events_.misfit(sentence);
    }

    [[nodiscard]] Digest digest(const schema::Table& table, const Columns& columns) const {
        std::string names;
        for (const auto* column : columns)
            names.append(names.empty() ? "" : ", ").append(column->name);
        db::Query query{target_.connection(), "SELECT " + names + " FROM " + table.name};
        Digest digest;
        Row row;
        auto rows = query.open();
        const auto places = placesOf(columns, rows);
        while (rows.next()) {
            readRow(rows, places, row);
            for (std::size_t i = 0; i < columns.size(); ++i)
                if (row[i] && columns[i]->fractions)
                    row[i] = base::plainNumber(*row[i]).value_or(*row[i]);
            digest.add(row);
            if (digest.rows() % RowsBetweenEvents == 0)
                events_.goesOn(table.name, done_);
        }
        return digest;
    }

    const CopyRequest& wish_;
    const CopyEvents& events_;
    Source source_;
    Target target_;
    const schema::Engine& engine_ = target_.engine();
    long long done_ = 0;
};

}  // namespace

std::vector<CopiedTable> copyDatabase(const CopyRequest& wish, const CopyEvents& events) {
    return Copying{wish, events}.run();
}

}  // namespace tessaly::tool
