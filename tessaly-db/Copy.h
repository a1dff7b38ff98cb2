#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tessaly-db/PathMap.h"
#include "tessaly-db/Row.h"

namespace tessaly::tool {

/// What is to be copied from one data source into the empty one of another.
struct CopyRequest {
    std::string from;
    std::string to;
    PathMap map;
    bool dryRun = false;  ///< do it all, and take it back: nothing is written, and no row that does not fit
                          ///< ends it
};

/// What the copying tells, and asks, while it goes on.
struct CopyEvents {
    /// All rows there are; 0 where the source cannot say.
    std::function<void(long long rows)> begins;
    /// Often; `done` counts the rows of all tables so far. May throw to end it.
    std::function<void(const std::string& table, long long done)> goesOn;
    /// A row that does not fit, in a sentence. In earnest it throws instead.
    std::function<void(const std::string& sentence)> misfit;
    /// The next thing is to put it in place; may throw still.
    std::function<void()> keeps;
};

struct CopiedTable {
    std::string name;
    Digest source;
    Digest target;                   ///< the same, but for a dry run, which knows none
    std::vector<std::string> notes;  ///< what of it was not there or is left out
};

/// Copies all tables, configuration and archive, in one transaction, and compares what it wrote with what it
/// read before it is kept. Nothing but a row at a time and a batch of rows is in memory. Throws
/// std::runtime_error or what derives from it; the new database is whole or not there.
std::vector<CopiedTable> copyDatabase(const CopyRequest& wish, const CopyEvents& events);

}  // namespace tessaly::tool
