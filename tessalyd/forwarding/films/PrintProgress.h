#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tessaly::tessalyd::films {

/// How far a job that prints is, as it is kept with the job.
struct PrintProgress {
    std::size_t printed = 0;  ///< films, the first ones
    std::size_t films = 0;    ///< in all; 0: not begun
    /// The printer was told, or was about to be, to print the one behind these.
    bool isAsked = false;

    /// What makes no sense is not begun.
    [[nodiscard]] static PrintProgress parse(std::string_view note);
    /// "2 of 3 films printed", "2 of 3 films printed, the next asked for".
    [[nodiscard]] std::string note() const;
    [[nodiscard]] bool isComplete() const noexcept { return films > 0 && printed >= films; }
};

}  // namespace tessaly::tessalyd::films
