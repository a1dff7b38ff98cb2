#include "jobs/Spool.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

namespace tessaly::jobs {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const char* what) {
    throw std::system_error{errno, std::generic_category(), what};
}

std::string randomName(const std::string& kind) {
    std::array<std::uint8_t, 16> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        fail("no random name for the spool");
    constexpr const char* Digits = "0123456789abcdef";
    std::string name = kind + '-';
    for (const std::uint8_t byte : bytes)
        name.append(1, Digits[byte >> 4U]).append(1, Digits[byte & 15U]);
    return name;
}

base::FileDescriptor openFolder(const fs::path& folder) {
    return base::FileDescriptor{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW)};
}

/// Held until the descriptor is closed, however the process ends. Returns false where somebody else has the
/// lock, and on a file system without locks.
bool tryLock(const base::FileDescriptor& descriptor) noexcept {
    return ::flock(descriptor.get(), LOCK_EX | LOCK_NB) == 0;
}

/// A lock on the spool's folder, for a moment: an entry that has just been made is not locked yet, and is no
/// left-over one. Many may make entries at a time; nobody looks for left-over ones meanwhile.
class FolderLock {
  public:
    enum class Kind { Shared = LOCK_SH, Exclusive = LOCK_EX };
    FolderLock(const fs::path& folder, Kind kind) : folder_(openFolder(folder)) {
        while (folder_.isOpen() && !isHeld_) {
            isHeld_ = ::flock(folder_.get(), static_cast<int>(kind)) == 0;
            if (!isHeld_ && errno != EINTR)
                return;
        }
    }
    /// False where the folder is not there, and on a file system without locks.
    [[nodiscard]] bool isHeld() const noexcept { return isHeld_; }

  private:
    base::FileDescriptor folder_;
    bool isHeld_ = false;
};

/// The lock tells what is being made from what a killed server has left. Where there are no locks, nothing is
/// ever taken for left over.
Spool::Entry locked(Spool::Entry entry) {
    tryLock(entry.descriptor);
    return entry;
}

/// What nobody has locked, locked; closed if there is no such thing.
base::FileDescriptor lockedLeftOver(const fs::path& path) {
    const FolderLock lock{path.parent_path(), FolderLock::Kind::Exclusive};
    if (!lock.isHeld())
        return {};
    base::FileDescriptor opened{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)};
    if (opened.isOpen() && !tryLock(opened))
        opened.reset();
    return opened;
}

void flush(const base::FileDescriptor& descriptor) {
    if (::fsync(descriptor.get()) < 0)
        fail("the spool cannot be flushed");
}

void flushFolder(const fs::path& folder) {
    const base::FileDescriptor opened = openFolder(folder);
    if (!opened.isOpen())
        fail("the spool cannot be opened");
    flush(opened);
}

void makeSpool(const fs::path& folder) {
    if (::mkdir(folder.c_str(), 0700) == 0)
        flushFolder(folder.parent_path());
    else if (errno != EEXIST)
        fail("the spool cannot be made");
}

}  // namespace

Spool::Entry Spool::makeFile(const std::string& kind) const {
    makeSpool(folder_);
    const FolderLock lock{folder_, FolderLock::Kind::Shared};
    Entry entry{.descriptor = {}, .path = folder_ / randomName(kind)};
    entry.descriptor = base::FileDescriptor{
        ::open(entry.path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600)};
    if (!entry.descriptor.isOpen())
        fail("a file of the spool cannot be made");
    return locked(std::move(entry));
}

Spool::Entry Spool::makeFolder(const std::string& kind) const {
    makeSpool(folder_);
    const FolderLock lock{folder_, FolderLock::Kind::Shared};
    Entry entry{.descriptor = {}, .path = folder_ / randomName(kind)};
    if (::mkdir(entry.path.c_str(), 0700) == 0)
        entry.descriptor = openFolder(entry.path);
    if (!entry.descriptor.isOpen())
        fail("a folder of the spool cannot be made");
    return locked(std::move(entry));
}

void Spool::makeDurable(const Entry& entry) {
    if (fs::is_directory(entry.path))
        for (const auto& file : fs::directory_iterator{entry.path}) {
            const base::FileDescriptor opened{
                ::open(file.path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)};
            if (!opened.isOpen())
                fail("a file of the spool cannot be opened");
            flush(opened);
        }
    flush(entry.descriptor);
    flushFolder(entry.path.parent_path());
}

Spool::Entry Spool::write(const std::string& kind, std::span<const char> content) const {
    Entry entry = makeFile(kind);
    try {
        while (!content.empty()) {
            const ssize_t written = ::write(entry.descriptor.get(), content.data(), content.size());
            if (written < 0 && errno != EINTR)
                fail("a file of the spool cannot be written");
            if (written > 0)
                content = content.subspan(static_cast<std::size_t>(written));
        }
        makeDurable(entry);
    } catch (...) {
        remove(entry.path);
        throw;
    }
    return entry;
}

std::size_t Spool::clean(const std::function<bool(const fs::path&)>& isOfAJob) const {
    std::size_t removed = 0;
    std::error_code error;
    for (fs::directory_iterator entry{folder_, error}, end; !error && entry != end; entry.increment(error)) {
        // First the lock, then the question: whoever makes it has it locked until its job is committed.
        const base::FileDescriptor leftOver = lockedLeftOver(entry->path());
        if (!leftOver.isOpen() || isOfAJob(entry->path()))
            continue;
        remove(entry->path());
        ++removed;
    }
    return removed;
}

void Spool::remove(const fs::path& path) noexcept {
    std::error_code error;
    fs::remove_all(path, error);
}

}  // namespace tessaly::jobs
