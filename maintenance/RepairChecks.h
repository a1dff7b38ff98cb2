#pragma once

#include "db/Connection.h"
#include "maintenance/Pass.h"

// The repair without its form: which rows of the archive's tables go, and why.

namespace tessaly::maintenance {

/// In the order in which one pass runs them: a row that goes can leave its owner empty for a later check.
enum class Check { Images, Series, Studies, Patients };

/// Rows of the four tables together.
[[nodiscard]] int countArchiveRows(const db::Connection& connection);

/// Walks one table and removes, one at a time and at once, the rows that have lost what they stand for. Every
/// removal counts by itself: what was removed before a fault, a db::Error or a std::system_error of a file
/// look-up that failed without an answer, stays removed. Counts rows, removed or not, each at once. Asks
/// before every row whether to stop, and breathes while the rows are read and visited each millisecond, after
/// the first row, and before and after each that may have to go. Announces an image whose file is not there;
/// where nobody knows of it, the row stays.
class RepairCheck : public Pass {
  public:
    explicit RepairCheck(Check check) : check_(check) {}

    void run(const db::Connection& connection, Progress& progress) override;

  private:
    Check check_;
};

}  // namespace tessaly::maintenance
