#include "db/Error.h"

#include <utility>

namespace tessaly::db {

Error::Error(std::vector<Diagnostic> diagnostics, std::string statement, int number)
    : std::runtime_error(diagnostics.front().message),
      diagnostics_(std::move(diagnostics)),
      statement_(std::move(statement)),
      number_(number) {}

Error::Error(std::vector<Diagnostic> diagnostics, std::string statement)
    : std::runtime_error(diagnostics.front().message),
      diagnostics_(std::move(diagnostics)),
      statement_(std::move(statement)),
      number_(nativeCode()) {}

Error::Error(const std::string& description)
    : Error(std::vector{Diagnostic{.sqlState = "HY000", .nativeCode = 0, .message = description}}, {}) {}

void throwError(FaultKind kind, std::vector<Diagnostic> diagnostics, std::string statement) {
    switch (kind) {
        case FaultKind::LostSession:
            throw LostSession{std::move(diagnostics), std::move(statement)};
        case FaultKind::DuplicateKey:
            throw DuplicateKey{std::move(diagnostics), std::move(statement)};
        case FaultKind::Conflict:
            throw Conflict{std::move(diagnostics), std::move(statement)};
        case FaultKind::StalePlan:
            throw StalePlan{std::move(diagnostics), std::move(statement)};
        case FaultKind::Other:
            break;
    }
    throw Error{std::move(diagnostics), std::move(statement)};
}

}  // namespace tessaly::db
