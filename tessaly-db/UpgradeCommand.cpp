#include "tessaly-db/UpgradeCommand.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

#include <iostream>
#include <stdexcept>

#include "schema/OlderRows.h"
#include "schema/Upgrade.h"
#include "tessaly-db/BreakOff.h"
#include "tessaly-db/DataSource.h"
#include "tessaly-db/Fill.h"
#include "tessaly-db/ProgressBar.h"
#include "tessaly-db/Text.h"

namespace tessaly::tool {

namespace {

constexpr long long NamedFiles = 20;

void fill(const db::Connection& connection, bool quiet) {
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);  // what the toolkit thinks of a file is said here once
    const BreakOff breakOff;
    ProgressBar bar{!quiet, "images"};
    long long named = 0;
    const FillEvents events{
        .begins = [&bar](long long images) { bar.setWhole(images); },
        .goesOn =
            [&bar](long long done) {
                if (BreakOff::isWanted())
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
        return;
    if (named > NamedFiles)
        std::cout << "... and " << named - NamedFiles << " more\n";
    std::cout << "Older rows: filled " << filled.patients << " patients and " << filled.images << " images";
    if (filled.unreadable > 0)
        std::cout << "; " << filled.unreadable << " files could not be read";
    std::cout << '\n';
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
    if (options.refill)
        schema::setFilledTo(connection, "");
    const bool fills = schema::filledTo(connection).has_value();
    if (fills)
        fill(connection, options.quiet);
    if (!done.empty() || !options.quiet)
        std::cout << options.dsn << ": version " << schema::currentVersion()
                  << (done.empty() && !fills ? ", nothing to do\n" : "\n");
    return 0;
}

}  // namespace tessaly::tool
