#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "archive/Report.h"

namespace tessaly::archive {

/// Tells whether the roots are the archive's: the folder that a file system is mounted on is there also when
/// it is not mounted, and takes objects that nobody finds afterwards. Thread-safe.
class ArchiveRoots {
  public:
    explicit ArchiveRoots(Report report = reportNothing) : report_(std::move(report)) {}

    /// Keeps in mind, as the server starts, on which device each of the roots lies. What was known of others
    /// is forgotten.
    void remember(const std::vector<std::string>& roots);

    /// False for a root that is empty although `hasStudies()` says that the tables know studies in it, and
    /// for one that lies on another device than at the start. A root that is missing passes: no file can be
    /// written there. The roots are as the tables have them; `study` is the folder that is to be in it. A
    /// line is reported when a root becomes unavailable, and one when it is there again.
    [[nodiscard]] bool isAvailable(const std::string& root, const std::string& study,
                                   const std::function<bool()>& hasStudies);

  private:
    struct State {
        dev_t device = 0;
        bool wasEmpty = false;
        bool isAvailable = true;
    };

    Report report_;
    std::mutex mutex_;
    std::map<std::string, State> states_;
};

}  // namespace tessaly::archive
