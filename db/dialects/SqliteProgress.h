#pragma once

#include <chrono>
#include <memory>

#include "db/dialects/Progress.h"

namespace tessaly::db {

// The driver gives nobody its connection of SQLite. The library, which the driver shares with this program,
// tells of every connection that is opened in the process.

/// Before this thread has the driver open a connection.
void expectSqliteConnection();
/// Of the connection that this thread has opened since; null where none was, as by a driver that has the
/// library built in. The connection must not be used any more when it goes. `lockWait`: how long the driver
/// waits for another's lock; where somebody listens, the wait is cut short by the listener.
[[nodiscard]] std::unique_ptr<Progress> sqliteProgress(std::chrono::milliseconds lockWait);

}  // namespace tessaly::db
