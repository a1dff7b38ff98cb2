#include "tessaly-db/Check.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

#include "db/Error.h"
#include "db/Query.h"
#include "db/Transaction.h"
#include "passwords/PasswordEncoder.h"
#include "schema/Schema.h"
#include "tessaly-db/DataSource.h"

namespace tessaly::tool {

namespace {

/// Names of SQL differ in nothing but case at most.
struct WithoutCase {
    bool operator()(const std::string& a, const std::string& b) const {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                            [](char x, char y) { return lower(x) < lower(y); });
    }
    static char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
};

using Facts = std::set<std::string, WithoutCase>;
using Catalogue = std::map<std::string, Facts, WithoutCase>;

Catalogue readCatalogue(const db::Connection& connection, const schema::Engine& engine) {
    Catalogue catalogue;
    db::Query query{connection, std::string{engine.catalogue}};
    auto rows = query.open();
    while (rows.next()) {
        const auto table = rows.text("TableName");
        catalogue[table].insert(rows.text("Fact"));
    }
    return catalogue;
}

/// The catalogue that a new database has: made from the same text, so that nothing states it twice.
Catalogue expectedCatalogue(const std::string& dsn, const schema::Engine& engine) {
    db::Connection scratch;
    connect(scratch, dsn, std::string{engine.scratch});
    std::optional<db::Transaction> transaction;  // never committed
    if (!engine.scratchStart.empty())
        transaction.emplace(scratch);
    for (const auto text : {engine.scratchStart, engine.tables})
        for (const auto& statement : schema::statements(text))
            db::execute(scratch, statement);
    return readCatalogue(scratch, engine);
}

void compareTables(const Catalogue& expected, const Catalogue& actual, std::vector<std::string>& faults) {
    for (const auto& [table, facts] : expected) {
        const auto found = actual.find(table);
        if (found == actual.end()) {
            faults.push_back("The table " + table + " is missing");
            continue;
        }
        for (const auto& fact : facts)
            if (!found->second.contains(fact))
                faults.emplace_back(table).append(" lacks ").append(fact);
    }
}

long long count(const db::Connection& connection, const std::string& table) {
    db::Query query{connection, "SELECT COUNT(*) AS Num FROM " + table};
    auto rows = query.open();
    return rows.next() ? rows.integer("Num") : 0;
}

std::optional<std::string> checkOneRow(const db::Connection& connection, const std::string& table) {
    const auto rows = count(connection, table);
    if (rows == 1)
        return {};
    return table + " has " + std::to_string(rows) + " rows instead of one";
}

std::optional<std::string> checkAnyRow(const db::Connection& connection, const std::string& table) {
    if (count(connection, table) > 0)
        return {};
    return table + " has no row";
}

std::optional<std::string> checkAdministrator(const db::Connection& connection, const std::string& table) {
    db::Query query{connection, "SELECT UserPwd FROM " + table + " WHERE DcmAdmin<>0"};
    auto rows = query.open();
    while (rows.next()) {
        // An empty or absent password lets its user in, and any other is of the encoder's making.
        const auto length = rows.text("UserPwd").size();
        if (length == 0 || length == PasswordEncoder::EncodedLength)
            return {};
    }
    return table + " has no administrator that can log in";
}

struct RowCheck {
    const char* table;
    std::optional<std::string> (*run)(const db::Connection&, const std::string& table);
};

constexpr std::array RowChecks{
    RowCheck{"DicomServer", checkOneRow},
    RowCheck{"SiteData", checkOneRow},
    RowCheck{"Port", checkAnyRow},
    RowCheck{"Users", checkAdministrator},
};

}  // namespace

std::vector<std::string> findFaults(const std::string& dsn) {
    db::Connection connection;
    try {
        requireDataSource(dsn);
        connect(connection, dsn);
    } catch (const std::runtime_error& error) {
        return {error.what()};
    }
    std::vector<std::string> faults;
    const auto& engine = schema::engine(connection.engineName());
    const auto actual = readCatalogue(connection, engine);
    compareTables(expectedCatalogue(dsn, engine), actual, faults);
    for (const auto& check : RowChecks) {
        if (!actual.contains(check.table))
            continue;  // said already
        try {
            if (auto fault = check.run(connection, check.table))
                faults.push_back(std::move(*fault));
        } catch (const db::Error& error) {
            faults.push_back(std::string{"The rows of "} + check.table + " cannot be read: " + error.what());
        }
    }
    return faults;
}

}  // namespace tessaly::tool
