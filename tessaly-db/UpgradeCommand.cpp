#include "tessaly-db/UpgradeCommand.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

#include <iostream>
#include <stdexcept>

#include "db/Error.h"
#include "maintenance/Backfill.h"
#include "schema/BackfillMark.h"
#include "schema/Upgrade.h"
#include "tessaly-db/DataSource.h"
#include "tessaly-db/InterruptGuard.h"
#include "tessaly-db/ProgressBar.h"
#include "tessaly-db/Text.h"

namespace tessaly::tool {

namespace {

using maintenance::Backfill;

constexpr long long NamedFiles = 20;

/// In the terminal: a bar, and the first of the files that give nothing.
class TerminalProgress : public maintenance::Progress {
  public:
    explicit TerminalProgress(bool quiet) : quiet_(quiet), bar_(!quiet, "images") {}

    void setTotal(long long total) override { bar_.setWhole(total); }
    void setDone(long long done) override { bar_.show("older rows are filled", done); }
    void note(const std::string& sentence) override {
        if (quiet_ || ++notes_ > NamedFiles)
            return;
        bar_.clear();
        std::cout << printable(sentence) << std::endl;
    }
    [[nodiscard]] bool isStopRequested() override { return InterruptGuard::isWanted(); }
    using Progress::breathe;
    void breathe(const LetGo& /*letGo*/) override {}

    void finish() {
        bar_.clear();
        if (notes_ > NamedFiles)
            std::cout << "... and " << notes_ - NamedFiles << " more\n";
    }

  private:
    bool quiet_;
    ProgressBar bar_;
    long long notes_ = 0;
};

[[nodiscard]] Backfill::Result fill(const db::Connection& connection, bool quiet) {
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);  // what the toolkit thinks of a file is said here once
    const InterruptGuard breakOff;
    TerminalProgress progress{quiet};
    Backfill backfill;
    constexpr const char* BrokenOff = "Broken off: what is filled stays, and the next upgrade goes on";
    try {
        backfill.run(connection, progress);
    } catch (const db::Stopped&) {
        throw std::runtime_error(BrokenOff);
    }
    const Backfill::Result& filled = backfill.result();
    if (filled.isStopped)
        throw std::runtime_error(BrokenOff);
    progress.finish();
    if (quiet)
        return filled;
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
