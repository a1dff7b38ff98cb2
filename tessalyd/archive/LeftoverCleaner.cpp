#include "tessalyd/archive/LeftoverCleaner.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <system_error>

#include "db/StoredPath.h"
#include "tessalyd/FileDescriptor.h"
#include "tessalyd/Log.h"
#include "tessalyd/archive/ArchiveFile.h"
#include "tessalyd/archive/FileLock.h"

namespace tessaly::tessalyd {

namespace {

namespace fs = std::filesystem;

/// The clock that file times are taken from.
timespec now() {
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &time);
    return time;
}

bool isBefore(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

/// True when it was one, and is gone.
bool removed(const fs::path& file, const timespec& started) {
    // For writing, although nothing is written: network file systems give no other the lock that is wanted.
    const FileDescriptor handle{::open(file.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    struct stat found {};
    if (!handle.isOpen() || ::fstat(handle.get(), &found) < 0 || !S_ISREG(found.st_mode) ||
        !isBefore(found.st_mtim, started) || lockFile(handle) != FileLock::Held)
        return false;
    // The name may have come to stand for another file before this one was locked.
    return isNamed(handle, file) && ::unlink(file.c_str()) == 0;
}

/// Calls `visit` with every entry of a folder until `stop`; a folder that cannot be read has none.
template <class Visit>
void forEach(const fs::path& folder, const std::stop_token& stop, Visit visit) {
    std::error_code error;
    for (fs::directory_iterator entry{folder, error}, end; !error && entry != end; entry.increment(error)) {
        if (stop.stop_requested())
            return;
        visit(*entry);
    }
}

void cleanFolder(const fs::path& folder, const timespec& started, const std::stop_token& stop) {
    forEach(folder, stop, [&started](const fs::directory_entry& entry) {
        if (isTemporaryName(entry.path().filename().native()) && removed(entry.path(), started))
            OFLOG_INFO(serverLog(), "taken away, left by an earlier run: " << entry.path().c_str());
    });
}

void clean(const std::vector<std::string>& roots, const timespec& started, const std::stop_token& stop) {
    for (const std::string& root : roots) {
        forEach(db::localPath(root), stop, [&](const fs::directory_entry& study) {
            forEach(study.path(), stop,
                    [&](const fs::directory_entry& series) { cleanFolder(series.path(), started, stop); });
        });
    }
}

}  // namespace

LeftoverCleaner::LeftoverCleaner(std::vector<std::string> roots) {
    const timespec started = now();
    thread_ = std::jthread{
        [roots = std::move(roots), started](const std::stop_token& stop) { clean(roots, started, stop); }};
}

}  // namespace tessaly::tessalyd
