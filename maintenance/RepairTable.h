#pragma once

#include <string>
#include <vector>

#include "db/Query.h"
#include "maintenance/ImageFiles.h"
#include "maintenance/RepairChecks.h"

// What the four checks of the repair differ in. For RepairChecks.cpp.

namespace tessaly::maintenance {

/// A row of a check's table as its walk reads it.
struct WalkedRow {
    std::string key;
    std::string holds;  ///< of an image the stored path of its file, of an owner anything; empty: nothing
};

enum class Verdict { Keep, Remove, SayAndRemove };

/// One check: a walk that finds the rows that may have to go, and for each of these a test, a rule over what
/// the test found, and the removal.
struct RepairShape {
    std::string walk;  ///< all rows of the table, each with what it "Holds"
    std::string key;
    bool (*stays)(const std::string& holds, ImageFiles& files);  ///< to the best of the walk's knowledge
    db::Param (*parameter)(const std::string& cell);
    std::string row;               ///< one row of the walk by its key, with its own columns
    std::vector<std::string> own;  ///< those that matter; the first is the key
    std::string hold;  ///< changes nothing, and keeps others from the row until the removal; by all of `own`
    std::string test;
    std::size_t tested;  ///< which of `own` is the test's parameter
    Verdict (*rule)(db::ResultSet& found, const std::vector<std::string>& own);
    std::string removal;  ///< by its key
};

[[nodiscard]] RepairShape shapeOf(Check check, const db::Dialect& dialect);

}  // namespace tessaly::maintenance
