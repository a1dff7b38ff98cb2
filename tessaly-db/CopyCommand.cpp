#include "tessaly-db/CopyCommand.h"

#include <iomanip>
#include <iostream>

#include "tessaly-db/Copy.h"
#include "tessaly-db/InterruptGuard.h"
#include "tessaly-db/ProgressBar.h"
#include "tessaly-db/Text.h"

namespace tessaly::tool {

namespace {

void print(const std::vector<CopiedTable>& tables, bool dryRun) {
    std::cout << std::left << std::setw(18) << "Table" << std::right << std::setw(12) << "From";
    if (!dryRun)
        std::cout << std::setw(12) << "To"
                  << "  Checksum of both";
    std::cout << '\n';
    for (const auto& table : tables) {
        std::cout << std::left << std::setw(18) << table.name << std::right << std::setw(12)
                  << table.source.rows();
        if (!dryRun)
            std::cout << std::setw(12) << table.target.rows() << "  " << table.target.text();
        std::cout << '\n';
    }
    for (const auto& table : tables)
        for (const auto& note : table.notes)
            std::cout << printable(note) << '\n';
}

}  // namespace

int copy(const CopyOptions& options) {
    const CopyRequest wish{
        .from = options.from, .to = options.to, .map = PathMap{options.maps}, .dryRun = options.dryRun};
    const InterruptGuard breakOff;
    ProgressBar bar{!options.quiet, "rows"};
    long misfits = 0;
    const CopyEvents events{
        .begins = [&bar](long long rows) { bar.setWhole(rows); },
        .goesOn =
            [&bar](const std::string& table, long long done) {
                InterruptGuard::check();
                bar.show(table, done);
            },
        .misfit =
            [&](const std::string& sentence) {
                if (++misfits > options.limit)
                    return;
                bar.clear();
                std::cout << printable(sentence) << std::endl;
            },
        .keeps = [&breakOff] { breakOff.noMore(); },
    };
    const auto tables = copyDatabase(wish, events);
    bar.clear();
    if (misfits > options.limit)
        std::cout << "... and " << misfits - options.limit << " more\n";
    if (!options.quiet)
        print(tables, options.dryRun);
    if (!options.quiet && misfits > 0)
        std::cout << misfits << " rows do not fit\n";
    return misfits > 0 ? 1 : 0;
}

}  // namespace tessaly::tool
