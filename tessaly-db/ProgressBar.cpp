#include "tessaly-db/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <utility>

namespace tessaly::tool {

ProgressBar::ProgressBar(bool shown, std::string unit)
    : shown_(shown && isatty(STDERR_FILENO) != 0), unit_(std::move(unit)) {}

void ProgressBar::show(const std::string& what, long long done) {
    if (!shown_)
        return;
    constexpr long long Width = 30;
    const long long percent = whole_ > 0 ? std::min(done * 100 / whole_, 100LL) : 0;
    const auto marks = static_cast<std::size_t>(percent * Width / 100);
    std::string line{'['};
    line.append(marks, '#').append(Width - marks, '.').append("] ");
    if (whole_ > 0)
        line += std::to_string(percent) + "% ";
    line += std::to_string(done) + " " + unit_ + ", " + what;
    if (line == last_)
        return;
    clear();
    std::cerr << line << std::flush;
    last_ = std::move(line);
}

void ProgressBar::clear() {
    if (!last_.empty())
        std::cerr << "\r\033[K" << std::flush;
    last_.clear();
}

}  // namespace tessaly::tool
