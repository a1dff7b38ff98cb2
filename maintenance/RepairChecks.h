#pragma once

#include <functional>

#include "db/Connection.h"
#include "maintenance/RowWalk.h"

// The repair pass without its form: which rows of the archive's tables go, and why.

namespace tessaly::maintenance {

/// In the order in which one pass runs them: a row that goes can leave its owner empty for a later check.
enum class Check { Images, Series, Studies, Patients };

/// What a check asks of the form; all are called on the thread that runs it.
struct RepairCallbacks {
    /// An image's file is not there. Returns when the user knows, or false when nobody will any more.
    std::function<bool()> missingFile;
    std::function<void()> rowDone;        ///< after every row, removed or not
    std::function<bool()> stopRequested;  ///< asked before every row
    /// Handles what is pending for the user interface: while the rows are read and visited each millisecond,
    /// after the first row, and before and after each that may have to go. May let go of the walk.
    std::function<void()> events;
};

/// Rows of the four tables together.
[[nodiscard]] int countArchiveRows(const db::Connection& connection);

/// Walks one table and removes, one at a time and at once, the rows that have lost what they stand for. Every
/// removal counts by itself: what was removed before a fault, a db::Error or a std::system_error of a file
/// look-up that failed without an answer, stays removed.
void runCheck(const db::Connection& connection, RowWalk& walk, Check check, const RepairCallbacks& callbacks);

}  // namespace tessaly::maintenance
