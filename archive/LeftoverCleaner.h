#pragma once

#include <string>
#include <thread>
#include <vector>

#include "archive/Report.h"

namespace tessaly::archive {

/// Takes away the temporary files that a killed server left below the roots: beside the listening, from the
/// constructor on, until it is through or destroyed. It looks where this server writes, two folders below a
/// root, follows no symbolic link there, and touches only names that this server gives, of files that are
/// older than itself and that no server has locked, on this machine or another (FileLock).
class LeftoverCleaner {
  public:
    explicit LeftoverCleaner(std::vector<std::string> roots, Report report = reportNothing);

    /// Waits until it is through.
    void finish() { thread_.join(); }

  private:
    std::jthread thread_;
};

}  // namespace tessaly::archive
