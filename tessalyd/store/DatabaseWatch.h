#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "db/DatabaseFile.h"

namespace tessaly::tessalyd {

/// Notices within a second that the database's file was removed, renamed or replaced, and when it can be used
/// again: the former file in its place, or another one with the tables. From the constructor to the
/// destructor, in a thread of its own; engines that keep no file here are not watched.
class DatabaseWatch {
  public:
    /// Called in the watch's thread.
    struct Actions {
        std::function<void()> lost;  ///< no session may be used or opened, idle ones are to be closed
        std::function<void()> back;
    };

    /// `file` is the one that the configuration was read from; nullopt: the engine keeps none here.
    DatabaseWatch(std::optional<db::DatabaseFile> file, Actions actions);

  private:
    void run(const std::stop_token& stop);
    void look();
    [[nodiscard]] bool isBack();
    [[nodiscard]] bool hasSettled();

    Actions actions_;
    std::optional<db::DatabaseFile> file_;  ///< the last that was in order
    bool isLost_ = false;
    std::string fault_;                             ///< why another file cannot be used, as it was logged
    std::optional<std::string> seen_;               ///< size and time of what lies there
    std::chrono::steady_clock::time_point seenAt_;  ///< for the first time
    std::jthread thread_;
};

}  // namespace tessaly::tessalyd
