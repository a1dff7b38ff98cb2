#pragma once

#include <QSet>
#include <QStringList>

#include "console/server/Server.h"

namespace tessaly::test {

/// What the servers of a test do, and what was asked of them.
struct ServerScript {
    bool refusesCreation = false;
    QSet<QString> failing;  ///< operations that throw
    int state = 0;
    bool service = false;
    bool refusesService = false;

    QStringList calls;  ///< "create", "drop" and the operations, in order
    server::Server* current = nullptr;

    /// Makes servers that follow this script; it must outlive them.
    [[nodiscard]] server::ServerFactory factory();
    /// The calls since the last time.
    [[nodiscard]] QStringList takeCalls() { return std::exchange(calls, {}); }
};

}  // namespace tessaly::test
