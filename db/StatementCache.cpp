#include "db/StatementCache.h"

#include <algorithm>

namespace tessaly::db {

Query StatementCache::take(const std::string& text) {
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [&text](const Entry& entry) { return entry.text == text; });
    if (found == entries_.end()) {
        Query statement{connection_, text};
        statement.setTimeout(timeout_);
        return statement;
    }
    Query statement = std::move(found->statement);
    entries_.erase(found);
    statement.setTimeout(timeout_);
    return statement;
}

void StatementCache::give(std::string text, Query statement) {
    entries_.push_front({std::move(text), std::move(statement)});
    if (entries_.size() > Most)
        entries_.pop_back();
}

}  // namespace tessaly::db
