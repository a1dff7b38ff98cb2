#pragma once

#include <QString>

namespace tessaly::test {

/// A TCP port on which nobody listens, of those that the system gives to no connection by itself. No other
/// test gets it as long as this process runs.
[[nodiscard]] QString unusedPort();

}  // namespace tessaly::test
