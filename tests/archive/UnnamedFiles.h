#pragma once

namespace tessaly::test {

/// Whether files without a name can be made in this process; they cannot on network file systems.
void allowUnnamedFiles(bool allowed);
[[nodiscard]] bool allowsUnnamedFiles();

}  // namespace tessaly::test
