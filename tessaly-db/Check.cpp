#include "tessaly-db/Check.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

#include "db/Error.h"
#include "db/Query.h"
#include "db/Transaction.h"
#include "jobs/JobTable.h"
#include "passwords/PasswordEncoder.h"
#include "schema/BackfillMark.h"
#include "schema/Catalogue.h"
#include "schema/Upgrade.h"
#include "tessaly-db/DataSource.h"

namespace tessaly::tool {

namespace {

constexpr const char* Remedy = ": run tessaly-db upgrade";

/// An upgrade adds everything but a primary key.
bool canBeAdded(const schema::Lack& lack, const schema::Definitions& definitions) {
    return lack.fact.empty() || lack.fact != schema::keyOf(*schema::findTable(definitions, lack.table));
}

/// The tables of `connection`, which has the `actual` ones.
void compareTables(const db::Connection& connection, const schema::Catalogue& actual,
                   std::vector<std::string>& faults) {
    const auto definitions = schema::definitions(schema::engine(connection));
    const int version = schema::version(connection);
    if (version != schema::currentVersion())
        faults.push_back("The tables are of version " + std::to_string(version) + ", this program's are " +
                         std::to_string(schema::currentVersion()) +
                         (version < schema::currentVersion() ? Remedy : ": it is too old for them"));
    else if (schema::filledTo(connection))
        faults.push_back(std::string{"Older rows of the archive lack what queries need of them"} + Remedy);
    for (const auto& lack : schema::lacks(schema::expectedCatalogue(definitions), actual)) {
        const bool addable = canBeAdded(lack, definitions);
        if (addable && version < schema::currentVersion())
            continue;  // said already
        faults.push_back(lack.text() + (addable ? Remedy : ""));
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

/// What the server was asked to do and has not done.
void checkJobs(const db::Connection& connection, std::vector<std::string>& faults) {
    using namespace std::chrono_literals;
    const auto add = [&faults](long long count, const char* what) {
        if (count > 0)
            faults.push_back(std::to_string(count) + (count == 1 ? " job " : " jobs ") + what +
                             ": see tessaly-db jobs");
    };
    const jobs::Troubles troubles = jobs::troubles(connection, 1h);
    add(troubles.late, "waiting for longer than an hour");
    add(troubles.givenUp, "given up");
    add(troubles.uncertain, "of which it is not known whether it was done");
}

/// Of destinations with one name the server takes the first that it finds: a DICOM node by its AE title, an
/// FTP node by its name, a printer by its name.
struct HidingCheck {
    const char* what;       ///< that hides
    const char* hidden;     ///< what is hidden
    const char* statement;  ///< a row (Hides, Hidden) each
};

constexpr std::array HidingChecks{
    HidingCheck{"The AE title of the DICOM node", "the FTP node",
                "SELECT DicomNodes.Name AS Hides, FtpNodes.Name AS Hidden FROM DicomNodes, FtpNodes "
                "WHERE DicomNodes.Store<>0 AND FtpNodes.Name=DicomNodes.AETitle ORDER BY FtpNodes.Name"},
    HidingCheck{"The AE title of the DICOM node", "the printer",
                "SELECT DicomNodes.Name AS Hides, Printers.Name AS Hidden FROM DicomNodes, Printers "
                "WHERE DicomNodes.Store<>0 AND Printers.Name=DicomNodes.AETitle ORDER BY Printers.Name"},
    HidingCheck{"The FTP node", "the printer",
                "SELECT FtpNodes.Name AS Hides, Printers.Name AS Hidden FROM FtpNodes, Printers "
                "WHERE Printers.Name=FtpNodes.Name ORDER BY Printers.Name"},
};

void checkHiding(const db::Connection& connection, std::vector<std::string>& faults) {
    for (const HidingCheck& check : HidingChecks) {
        try {
            db::Query query{connection, check.statement};
            for (auto rows = query.open(); rows.next();)
                faults.push_back(std::string{check.what} + ' ' + rows.text("Hides") + " hides " +
                                 check.hidden + ' ' + rows.text("Hidden") + " as a destination");
        } catch (const db::Error&) {
            // What lacks of these tables was said already.
        }
    }
}

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
    if (auto log = logWithPassword(dsn))
        faults.push_back(std::move(*log));
    const auto actual = schema::readCatalogue(connection);
    compareTables(connection, actual, faults);
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
    checkHiding(connection, faults);
    try {
        if (actual.contains("Job"))
            checkJobs(connection, faults);
    } catch (const db::Error& error) {
        faults.push_back(std::string{"The rows of Job cannot be read: "} + error.what());
    }
    return faults;
}

}  // namespace tessaly::tool
