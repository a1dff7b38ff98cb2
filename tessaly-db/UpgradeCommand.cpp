#include "tessaly-db/UpgradeCommand.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

#include <iostream>
#include <stdexcept>

#include "schema/OlderRows.h"
#include "schema/Upgrade.h"
#include "tessaly-db/DataSource.h"
#include "tessaly-db/Fill.h"
#include "tessaly-db/InterruptGuard.h"
#include "tessaly-db/ProgressBar.h"
#include "tessaly-db/Text.h"

namespace tessaly::tool {

namespace {

constexpr long long NamedFiles = 20;

[[nodiscard]] Filled fill(const db::Connection& connection, bool quiet) {
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);  // what the toolkit thinks of a file is said here once
    const InterruptGuard breakOff;
    ProgressBar bar{!quiet, "images"};
    long long named = 0;
    const FillEvents events{
        .begins = [&bar](long long images) { bar.setWhole(images); },
        .goesOn =
            [&bar](long long done) {
                if (InterruptGuard::isWanted())
                    throw std::runtime_error(
                        "Broken off: what is filled stays, and the next upgrade goes on");
                bar.show("older rows are filled", done);
            },
        .unreadable =
            [&](const std::string& why) {
                if (quiet || ++named > NamedFiles)
                    return;
                bar.clear();
                std::cout << printable(why) << std::endl;
            },
    };
    const Filled filled = fillOlderRows(connection, events);
    bar.clear();
    if (quiet)
        return filled;
    if (named > NamedFiles)
        std::cout << "... and " << named - NamedFiles << " more\n";
    std::cout << "Older rows: filled " << filled.patients << " patients and " << filled.images << " images";
    if (filled.unreadable > 0)
        std::cout << "; " << filled.unreadable << " files could not be read";
    std::cout << '\n';
    return filled;
}

/// Reads the older rows' files, or the files anew that gave nothing. False where nothing was left to be done.
bool fillOlder(const db::Connection& connection, const UpgradeOptions& options) {
    const auto before = schema::filledTo(connection);
    if (!before && !options.refill)
        return false;
    if (options.refill)
        schema::setFilledTo(connection, "");
    if (fill(connection, options.quiet).seesArchive())
        return true;
    if (options.refill)  // what has been given up before is not taken up again by the next upgrade
        schema::setFilledTo(connection, before);
    if (before && !options.quiet)
        std::cout << "Not one of them could be: is the archive's disk there? The next upgrade tries again\n";
    return true;
}

}  // namespace

int upgrade(const UpgradeOptions& options) {
    requireDataSource(options.dsn);
    db::Connection connection;
    connect(connection, options.dsn);
    const auto done = schema::upgrade(connection);
    for (const auto& line : done)
        std::cout << line << '\n';
    std::cout.flush();
    const bool fills = fillOlder(connection, options);
    if (!done.empty() || !options.quiet)
        std::cout << options.dsn << ": version " << schema::currentVersion()
                  << (done.empty() && !fills ? ", nothing to do\n" : "\n");
    return 0;
}

}  // namespace tessaly::tool
