#include "archive/ArchiveRoots.h"

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <system_error>

#include "archive/Location.h"
#include "archive/StoredPath.h"

namespace tessaly::archive {

namespace {

namespace fs = std::filesystem;

std::optional<dev_t> deviceOf(const fs::path& folder) {
    struct stat found {};
    if (::stat(folder.c_str(), &found) < 0)
        return std::nullopt;
    return found.st_dev;
}

/// Apart from what the making of a file system leaves, and the server's own spool. One that cannot be read is
/// not empty.
bool isEmpty(const fs::path& folder) {
    std::error_code error;
    for (fs::directory_iterator entry{folder, error}, end; !error && entry != end; entry.increment(error)) {
        if (entry->path().filename() != "lost+found" && entry->path().filename() != SpoolFolder)
            return false;
    }
    return !error;
}

}  // namespace

void ArchiveRoots::remember(const std::vector<std::string>& roots) {
    const std::lock_guard lock{mutex_};
    states_.clear();
    for (std::string root : roots) {
        while (root.ends_with('\\') || root.ends_with('/'))
            root.pop_back();
        const fs::path folder = localPath(root);
        if (const auto device = deviceOf(folder))
            states_[root] = {.device = *device, .wasEmpty = isEmpty(folder)};
    }
}

bool ArchiveRoots::isAvailable(const std::string& root, const std::string& study,
                               const std::function<bool()>& hasStudies) {
    const fs::path folder = localPath(root);
    const auto device = deviceOf(folder);
    if (!device)
        return true;
    std::unique_lock lock{mutex_};
    const auto known = states_.try_emplace(root, State{.device = *device, .wasEmpty = true}).first;
    const State before = known->second;
    lock.unlock();
    const bool isOther = before.device != *device;
    // A root that is in order has the study's folder already, as a rule, and need not be read.
    const bool mayBeEmpty = before.wasEmpty || isOther || !deviceOf(folder / study);
    const bool isEmptyNow = mayBeEmpty && isEmpty(folder);
    const char* fault = nullptr;
    // Again: the first object of another study may have come between, first its folder and then its row.
    if (isEmptyNow && hasStudies() && isEmpty(folder))
        fault = "it is empty, but the tables know studies in it; it is taken for not mounted";
    // What was not mounted at the start is what the tables know when it comes with something in it.
    else if (isOther && !(before.wasEmpty && !isEmptyNow && hasStudies()))
        fault = "it lies on another file system than when the server started; a restart takes it as it is";
    lock.lock();
    State& state = states_[root];
    if (fault == nullptr)
        state = {.device = *device, .wasEmpty = isEmptyNow, .isAvailable = state.isAvailable};
    if (const bool isAvailable = fault == nullptr; isAvailable != state.isAvailable) {
        state.isAvailable = isAvailable;
        if (isAvailable)
            report_(Severity::Info, "root " + root + ": available again");
        else
            report_(Severity::Error, "root " + root + ": no objects are stored there: " + fault);
    }
    return fault == nullptr;
}

}  // namespace tessaly::archive
