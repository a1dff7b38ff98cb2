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

/// Held until the descriptor is closed, however the process ends. It tells what is being made from what a
/// killed server has left.
void lock(const base::FileDescriptor& descriptor) {
    if (::flock(descriptor.get(), LOCK_EX | LOCK_NB) < 0)
        fail("the spool cannot be locked");
}

base::FileDescriptor openFolder(const fs::path& folder) {
    base::FileDescriptor opened{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW)};
    if (!opened.isOpen())
        fail("the spool cannot be opened");
    return opened;
}

void flush(const base::FileDescriptor& descriptor) {
    if (::fsync(descriptor.get()) < 0)
        fail("the spool cannot be flushed");
}

void makeSpool(const fs::path& folder) {
    if (::mkdir(folder.c_str(), 0700) == 0)
        flush(openFolder(folder.parent_path()));
    else if (errno != EEXIST)
        fail("the spool cannot be made");
}

bool isLockable(const fs::path& path) {
    const base::FileDescriptor opened{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)};
    return opened.isOpen() && ::flock(opened.get(), LOCK_EX | LOCK_NB) == 0;
}

}  // namespace

Spool::Entry Spool::makeFile(const std::string& kind) const {
    makeSpool(folder_);
    Entry entry{.descriptor = {}, .path = folder_ / randomName(kind)};
    entry.descriptor = base::FileDescriptor{
        ::open(entry.path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600)};
    if (!entry.descriptor.isOpen())
        fail("a file of the spool cannot be made");
    lock(entry.descriptor);
    return entry;
}

Spool::Entry Spool::makeFolder(const std::string& kind) const {
    makeSpool(folder_);
    Entry entry{.descriptor = {}, .path = folder_ / randomName(kind)};
    if (::mkdir(entry.path.c_str(), 0700) < 0)
        fail("a folder of the spool cannot be made");
    entry.descriptor = openFolder(entry.path);
    lock(entry.descriptor);
    return entry;
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
    flush(openFolder(entry.path.parent_path()));
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
        if (!isLockable(entry->path()) || isOfAJob(entry->path()))
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
