#pragma once

#include <optional>

namespace tessaly::test {

/// The status that the console was ended with since the last call, nothing if it was not. Makes the process
/// ready for more: event loops run again.
[[nodiscard]] std::optional<int> takeConsoleEnd();

}  // namespace tessaly::test
