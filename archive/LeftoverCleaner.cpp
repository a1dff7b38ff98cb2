#include "archive/LeftoverCleaner.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <memory>

#include "archive/ArchiveFile.h"
#include "archive/FileLock.h"
#include "archive/Folder.h"
#include "archive/StoredPath.h"
#include "base/FileDescriptor.h"

namespace tessaly::archive {

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
bool removed(const base::FileDescriptor& folder, const std::string& name, const timespec& started) {
    // For writing, although nothing is written: network file systems give no other the lock that is wanted.
    const base::FileDescriptor file{
        ::openat(folder.get(), name.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    struct stat found {};
    if (!file.isOpen() || ::fstat(file.get(), &found) < 0 || !S_ISREG(found.st_mode) ||
        !isBefore(found.st_mtim, started) || lockFile(file) != FileLock::Held)
        return false;
    // The name may have come to stand for another file before this one was locked.
    return isNamed(file, folder, name) && ::unlinkat(folder.get(), name.c_str(), 0) == 0;
}

struct CloseFolder {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

/// Calls `visit` with the name of every entry of a folder until `stop`; a folder that cannot be read has
/// none.
template <class Visit>
void forEach(const base::FileDescriptor& folder, const std::stop_token& stop, Visit visit) {
    // A descriptor of its own: reading moves it.
    base::FileDescriptor read{
        folder.isOpen() ? ::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1};
    if (!read.isOpen())
        return;
    const std::unique_ptr<DIR, CloseFolder> entries{::fdopendir(read.get())};
    if (!entries)
        return;
    (void)read.release();
    while (const dirent* entry = ::readdir(entries.get())) {
        if (stop.stop_requested())
            return;
        if (const std::string name{static_cast<const char*>(entry->d_name)}; name != "." && name != "..")
            visit(name);
    }
}

base::FileDescriptor folderIn(const base::FileDescriptor& folder, const std::string& name) {
    return openBeneath(folder, name, O_PATH | O_DIRECTORY);
}

void clean(const fs::path& root, const timespec& started, const Report& report, const std::stop_token& stop) {
    std::size_t count = 0;
    const base::FileDescriptor opened = openRoot(root);
    forEach(opened, stop, [&](const std::string& study) {
        const base::FileDescriptor studyFolder = folderIn(opened, study);
        forEach(studyFolder, stop, [&](const std::string& series) {
            const base::FileDescriptor folder = folderIn(studyFolder, series);
            forEach(folder, stop, [&](const std::string& name) {
                if (!isTemporaryName(name) || !removed(folder, name, started))
                    return;
                ++count;
                report(Severity::Debug, "taken away: " + (root / study / series / name).string());
            });
        });
    });
    if (count > 0)
        report(Severity::Info, "taken away below " + root.string() + ": " + std::to_string(count) +
                                   " files left by an earlier run");
}

}  // namespace

LeftoverCleaner::LeftoverCleaner(std::vector<std::string> roots, Report report) {
    const timespec started = now();
    thread_ = std::jthread{
        [roots = std::move(roots), report = std::move(report), started](const std::stop_token& stop) {
            for (const std::string& root : roots)
                clean(localPath(root), started, report, stop);
        }};
}

}  // namespace tessaly::archive
