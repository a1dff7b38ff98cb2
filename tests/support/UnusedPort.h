#pragma once

#include <QString>

namespace tessaly::test {

/// A TCP port on which nobody listens, until somebody else takes it.
[[nodiscard]] QString unusedPort();

}  // namespace tessaly::test
