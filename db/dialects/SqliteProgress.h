#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "db/dialects/Progress.h"

namespace tessaly::db {

// The driver gives nobody its connection of SQLite. The library, which the driver shares with this program,
// tells of every connection that is opened in the process.

/// Before this thread has the driver open a connection.
void expectSqliteConnection();
/// Of the connection that this thread has opened since; null where none was, as by a driver that has the
/// library built in. The connection must not be used any more when it goes. Where somebody listens, the wait
/// for another's lock is cut short by the listener; `lockWait`, how long the driver waits, is asked by the
/// first statement that has to.
using LockWait = std::function<std::chrono::milliseconds()>;
[[nodiscard]] std::unique_ptr<Progress> sqliteProgress(LockWait lockWait);

}  // namespace tessaly::db
