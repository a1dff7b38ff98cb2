#include "tessaly-db/CopyCommand.h"

#include <unistd.h>

#include <algorithm>
#include <iomanip>
#include <iostream>

#include "tessaly-db/BreakOff.h"
#include "tessaly-db/Copy.h"

namespace tessaly::tool {

namespace {

/// One line of the terminal, on the standard error so that the standard output is the same without it.
class Bar {
  public:
    explicit Bar(bool shown) : shown_(shown) {}
    ~Bar() { clear(); }
    Bar(const Bar&) = delete;
    Bar& operator=(const Bar&) = delete;

    void setWhole(long long rows) { whole_ = rows; }

    void show(const std::string& table, long long done) {
        if (!shown_)
            return;
        constexpr long long Width = 30;
        const long long percent = whole_ > 0 ? std::min(done * 100 / whole_, 100LL) : 0;
        const auto marks = static_cast<std::size_t>(percent * Width / 100);
        std::string line{'['};
        line.append(marks, '#').append(Width - marks, '.').append("] ");
        if (whole_ > 0)
            line += std::to_string(percent) + "% ";
        line += std::to_string(done) + " rows, " + table;
        if (line == last_)
            return;
        clear();
        std::cerr << line << std::flush;
        last_ = std::move(line);
    }

    void clear() {
        if (!last_.empty())
            std::cerr << "\r\033[K" << std::flush;
        last_.clear();
    }

  private:
    bool shown_;
    long long whole_ = 0;
    std::string last_;
};

/// Texts come from a database: on the terminal they are not to do anything.
std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
    return text;
}

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
    const CopyWish wish{
        .from = options.from, .to = options.to, .map = PathMap{options.maps}, .dryRun = options.dryRun};
    const BreakOff breakOff;
    Bar bar{!options.quiet && isatty(STDERR_FILENO) != 0};
    long misfits = 0;
    const CopyEvents events{
        .begins = [&bar](long long rows) { bar.setWhole(rows); },
        .goesOn =
            [&bar](const std::string& table, long long done) {
                BreakOff::check();
                bar.show(table, done);
            },
        .misfit =
            [&](const std::string& sentence) {
                if (++misfits > options.limit)
                    return;
                bar.clear();
                std::cout << printable(sentence) << std::endl;
            },
        .keeps = BreakOff::noMore,
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
