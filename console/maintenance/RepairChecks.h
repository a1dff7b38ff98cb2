#pragma once

#include <functional>

#include "console/maintenance/SharedRead.h"
#include "db/Connection.h"

// The repair pass without its form: which rows of the archive's tables go, and why.

namespace tessaly::maintenance {

/// In the order in which one pass runs them: a row that goes can leave its owner empty for a later check.
enum class Check { Images, Series, Studies, Patients };

/// What a check asks of the form; all are called on the thread that runs it.
struct RepairCallbacks {
    std::function<void()> missingFile;    ///< an image's file is not there; returns when the user knows
    std::function<void()> rowDone;        ///< after every row, removed or not
    std::function<bool()> stopRequested;  ///< asked before every row
    std::function<void()> reading;        ///< now and then before the first row; is not to use the connection
};

/// Rows of the four tables together.
[[nodiscard]] int countArchiveRows(const db::Connection& connection);

/// Walks one table and removes, one at a time and at once, the rows that have lost what they stand for. Every
/// removal counts by itself: what was removed before a fault, a db::Error or a std::system_error of a file
/// look-up that failed without an answer, stays removed.
///
/// `read` is held between the rows; a callback that lets others use the connection lets go of it.
void runCheck(const db::Connection& connection, SharedRead& read, Check check,
              const RepairCallbacks& callbacks);

}  // namespace tessaly::maintenance
