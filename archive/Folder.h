#pragma once

#include <filesystem>

#include "base/FileDescriptor.h"

namespace tessaly::archive {

// Folders and files of the archive are reached from an opened root, and from there on through no symbolic
// link: somebody who may write into the archive cannot make the server read or write elsewhere. The functions
// return a closed descriptor, with errno set, where they fail.

/// Opens a root. The root itself, and what leads to it, may be symbolic links.
[[nodiscard]] base::FileDescriptor openRoot(const std::filesystem::path& root) noexcept;

/// Opens what lies at `way` below an opened folder, with the flags of open(2). Fails with ELOOP or ENOTDIR
/// where a part of the way, its last one included, is a symbolic link, and with EXDEV where it leads out of
/// the folder.
[[nodiscard]] base::FileDescriptor openBeneath(const base::FileDescriptor& folder,
                                               const std::filesystem::path& way, int flags) noexcept;

/// The same for kernels without openat2: one folder after the other. openBeneath() calls it there.
[[nodiscard]] base::FileDescriptor openStepByStep(const base::FileDescriptor& folder,
                                                  const std::filesystem::path& way, int flags) noexcept;

/// Flushes a folder, however it was opened, with one flush for all threads that wait for the same one's.
/// Returns false, with errno set, where that fails.
[[nodiscard]] bool flushFolder(const base::FileDescriptor& folder);

}  // namespace tessaly::archive
