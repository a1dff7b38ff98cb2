#include "db/Error.h"

#include <algorithm>

#include "db/Engine.h"

namespace tessaly::db {

Error::Error(std::vector<Diagnostic> diagnostics, std::string statement, bool lostSession)
    : std::runtime_error(diagnostics.front().message),
      diagnostics_(std::move(diagnostics)),
      statement_(std::move(statement)),
      lostSession_(lostSession) {
    number_ = std::any_of(diagnostics_.begin(), diagnostics_.end(), detail::isDuplicateKey) ? DuplicateKey
                                                                                            : nativeCode();
    conflict_ = std::any_of(diagnostics_.begin(), diagnostics_.end(), detail::isConflict);
}

Error::Error(const std::string& description)
    : Error(std::vector{Diagnostic{.sqlState = "HY000", .nativeCode = 0, .message = description}}, {}) {}

}  // namespace tessaly::db
