#include "db/Error.h"

#include <algorithm>

namespace tessaly::db {

namespace {

// Most drivers say "integrity constraint" (class 23) of a duplicate key and of little else that can happen
// here. The SQLite driver answers every constraint, and a trigger's RAISE too, with HY000 and native code 19:
// there only the text tells a duplicate key from the others.
bool isDuplicateKey(const Diagnostic& record) {
    constexpr int SqliteConstraint = 19;
    if (record.nativeCode == SqliteConstraint)
        return record.message.find("UNIQUE constraint failed") != std::string::npos;
    return record.sqlState == "23505" || record.sqlState == "23000";
}

}  // namespace

Error::Error(std::vector<Diagnostic> diagnostics, std::string statement)
    : std::runtime_error(diagnostics.front().message),
      diagnostics_(std::move(diagnostics)),
      statement_(std::move(statement)) {
    number_ =
        std::any_of(diagnostics_.begin(), diagnostics_.end(), isDuplicateKey) ? DuplicateKey : nativeCode();
}

Error::Error(const std::string& description)
    : Error(std::vector{Diagnostic{.sqlState = "HY000", .nativeCode = 0, .message = description}}, {}) {}

}  // namespace tessaly::db
