#pragma once

#include <chrono>
#include <span>
#include <string>
#include <string_view>

#include "db/dialects/Dialect.h"

namespace tessaly::db {

/// The dialect of an engine by the name that its driver gives; one of its own for an engine that none is
/// known of. It lives as long as the process. Thread-safe.
[[nodiscard]] const Dialect& dialectOf(std::string_view engineName, const Naming& naming);

/// The dialect of the engine that a driver's library is for, before there is a connection: whatever has to do
/// with names is not known then.
[[nodiscard]] const Dialect& dialectOfDriver(std::string_view library);

// Before the engine is known all dialects are asked.

/// What is added to every connect string, with a semicolon before it. `lockWait` as
/// Connection::setLockWait().
[[nodiscard]] std::string connectWords(Purpose purpose, std::chrono::milliseconds lockWait = {});
/// To be called before each connecting, in its thread: Dialect::expectConnection().
void expectConnection();
[[nodiscard]] FaultKind kindOfConnectFault(std::span<const Diagnostic> records);

}  // namespace tessaly::db
