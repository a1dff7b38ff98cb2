#pragma once

#include <functional>
#include <string>

#include "db/Connection.h"

namespace tessaly::tool {

/// What the filling tells, and asks, while it goes on.
struct FillEvents {
    /// All images there are.
    std::function<void(long long images)> begins;
    /// After each batch; `done` counts the images that have been looked at. May throw to end it: what has
    /// been done stays.
    std::function<void(long long done)> goesOn;
    /// A file that gives nothing, in a sentence. Its rows stay as they are.
    std::function<void(const std::string& why)> unreadable;
};

struct Filled {
    long long patients = 0;    ///< by their names
    long long images = 0;      ///< from their files, and their series and studies with them
    long long unreadable = 0;  ///< images
    long long readable = 0;    ///< files, whosever they are

    /// False where there were files to be read and not one could be: a disk that is not mounted rather than
    /// an archive that has lost them all.
    [[nodiscard]] bool seesArchive() const noexcept { return readable > 0 || unreadable == 0; }
};

/// Gives the rows of the archive that were there before their tables had all columns what those repeat of the
/// objects. Goes on where an earlier run came to its end, by batches, each a short transaction of its own: a
/// server may be storing meanwhile, and what it writes stays. What a row has already stays, too. Throws
/// db::Error; what has been done stays then. As long as nothing is seen of the archive, the mark stays where
/// it was, so that the next run looks at the same images again.
Filled fillOlderRows(const db::Connection& connection, const FillEvents& events);

}  // namespace tessaly::tool
