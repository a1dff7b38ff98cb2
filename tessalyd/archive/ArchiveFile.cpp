#include "tessalyd/archive/ArchiveFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <random>
#include <system_error>
#include <vector>

#include "tessalyd/archive/FileLock.h"

namespace tessaly::tessalyd {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view Prefix = ".tessalyd-";
constexpr std::string_view Suffix = ".part";

[[noreturn]] void fail(const fs::path& path) {
    throw std::system_error{errno, std::generic_category(), path.string()};
}

/// One that no other server has, on this machine or another, and no earlier one had.
std::string temporaryName() {
    static const std::string server =
        std::to_string(::getpid()) + '-' + std::to_string(std::random_device{}());
    static std::atomic<unsigned long long> last{0};
    return std::string{Prefix} + server + '-' + std::to_string(++last) + std::string{Suffix};
}

/// What is locked is to be found under its name by others: it has not been taken away in the moment before.
bool isInAFolder(const FileDescriptor& file) noexcept {
    struct stat found {};
    return ::fstat(file.get(), &found) == 0 && found.st_nlink > 0;
}

void flushFolder(const fs::path& folder) {
    const FileDescriptor handle{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!handle.isOpen() || ::fsync(handle.get()) < 0)
        fail(folder);
}

bool moved(const fs::path& from, const fs::path& to, unsigned flags) noexcept {
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0;
}

/// Makes a folder that lasts. One that is there may be another store's, which has not flushed it yet.
void makeFolder(const fs::path& folder) {
    constexpr mode_t Mode = 0777;  // less the process's mask
    if (::mkdir(folder.c_str(), Mode) < 0 && errno != EEXIST)
        fail(folder);
    flushFolder(folder.parent_path());
}

/// The file of that name, locked where locks are to be had; none where there is none, or none that may be
/// opened.
FileDescriptor lockedAt(const fs::path& path) {
    for (;;) {
        // For writing, although nothing is written: network file systems give no other the lock.
        FileDescriptor file{::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
        if (!file.isOpen() || waitForLock(file) == FileLock::NotToBeHad || isNamed(file, path))
            return file;
    }
}

}  // namespace

bool isTemporaryName(std::string_view name) noexcept {
    if (!name.starts_with(Prefix) || !name.ends_with(Suffix))
        return false;
    const std::string_view numbers = name.substr(Prefix.size(), name.size() - Prefix.size() - Suffix.size());
    return !numbers.empty() && numbers.find_first_not_of("0123456789-") == std::string_view::npos;
}

ArchiveFile::ArchiveFile(fs::path folder, std::string name)
    : folder_(std::move(folder)), name_(std::move(name)) {
    // Mostly the folders are there. Those that are made here, a store that fails in another thread may take
    // away again before the file is in them.
    constexpr int Attempts = 5;
    for (int attempt = 0; !file_.isOpen(); ++attempt) {
        try {
            if (attempt > 0)
                makeFolders();
            open();
        } catch (const std::system_error& error) {
            if (error.code() != std::errc::no_such_file_or_directory || attempt == Attempts) {
                withdraw();
                throw;
            }
        }
    }
}

ArchiveFile::~ArchiveFile() {
    withdraw();
}

void ArchiveFile::makeFolders() {
    // The root is the administrator's: a mistyped one, or one that is not mounted, must fail.
    makeFolder(folder_.parent_path());
    makeFolder(folder_);
}

void ArchiveFile::open() {
    constexpr mode_t Mode = 0666;  // less the process's mask
    // Before it is locked, a server that is just starting may take it for a left-over one.
    constexpr int Attempts = 5;
    for (int attempt = 1;; ++attempt) {
        temporary_ = folder_ / temporaryName();
        FileDescriptor file{::open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, Mode)};
        if (!file.isOpen())
            fail(temporary_);
        // Where locks are not to be had, nobody takes anything away.
        const bool ours = lockFile(file) != FileLock::OfSomebody && isInAFolder(file);
        if (ours || attempt == Attempts) {
            file_ = std::move(file);
            return;
        }
        ::unlink(temporary_.c_str());
    }
}

void ArchiveFile::write(std::span<const char> data) {
    while (!data.empty()) {
        const ssize_t written = ::write(file_.get(), data.data(), data.size());
        if (written < 0 && errno != EINTR)
            fail(temporary_);
        if (written > 0)
            data = data.subspan(static_cast<std::size_t>(written));
    }
}

void ArchiveFile::readAt(std::size_t offset, std::span<char> target) const {
    while (!target.empty()) {
        const ssize_t read = ::pread(file_.get(), target.data(), target.size(), static_cast<off_t>(offset));
        if (read < 0 && errno == EINTR)
            continue;
        if (read == 0)
            errno = EIO;  // somebody has cut it off
        if (read <= 0)
            fail(temporary_);
        offset += static_cast<std::size_t>(read);
        target = target.subspan(static_cast<std::size_t>(read));
    }
}

std::size_t ArchiveFile::size() const {
    struct stat found {};
    if (::fstat(file_.get(), &found) < 0)
        fail(temporary_);
    return static_cast<std::size_t>(found.st_size);
}

FileDescriptor ArchiveFile::openForReading() const {
    FileDescriptor file{::open(temporary_.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC)};
    if (!file.isOpen())
        fail(temporary_);
    return file;
}

void ArchiveFile::copyTo(ArchiveFile& other) const {
    std::vector<char> block(std::size_t{1} << 20U);
    const std::size_t whole = size();
    for (std::size_t at = 0; at < whole; at += block.size()) {
        const std::span part = std::span{block}.first(std::min(block.size(), whole - at));
        readAt(at, part);
        other.write(part);
    }
}

bool ArchiveFile::replaces() const noexcept {
    struct stat found {};
    return ::lstat(path().c_str(), &found) == 0;
}

void ArchiveFile::flush() {
    if (!flushed_ && ::fsync(file_.get()) < 0)
        fail(temporary_);
    flushed_ = true;
}

void ArchiveFile::publish() {
    try {
        if (stage_ == Stage::Writing) {
            giveName();
        } else if (!isNamed(file_, path())) {
            errno = ESTALE;
            fail(path());
        }
    } catch (...) {
        withdraw();
        throw;
    }
}

void ArchiveFile::giveName() {
    const fs::path final = path();
    flush();
    while (stage_ == Stage::Writing) {
        if (moved(temporary_, final, RENAME_NOREPLACE)) {
            stage_ = Stage::Published;
            break;
        }
        const bool isTaken = errno == EEXIST;
        // What is replaced gets the temporary name, by which only its lock tells it from a left-over file.
        replaced_ = lockedAt(final);
        if (moved(temporary_, final, RENAME_EXCHANGE)) {
            stage_ = Stage::Replaced;
        } else if (!isTaken || errno != ENOENT) {  // it has not merely vanished meanwhile
            // A file system that can neither: a file there is lost then even if this one is not kept.
            if (::rename(temporary_.c_str(), final.c_str()) < 0)
                fail(final);
            stage_ = Stage::Published;
        }
    }
    flushFolder(folder_);
}

void ArchiveFile::keep() noexcept {
    if (stage_ == Stage::Replaced)
        ::unlink(temporary_.c_str());
    stage_ = Stage::Done;
    file_.reset();
    replaced_.reset();
}

void ArchiveFile::leave() noexcept {
    if (stage_ == Stage::Published)
        keep();
    else
        withdraw();
}

void ArchiveFile::withdraw() noexcept {
    if (stage_ == Stage::Done)
        return;
    const fs::path final = path();
    // Where files cannot be locked, another server may have put its own there since: that is not this one's
    // to take away.
    if (stage_ == Stage::Replaced && isNamed(file_, final))
        moved(temporary_, final, RENAME_EXCHANGE);
    else if (stage_ == Stage::Published && isNamed(file_, final))
        ::unlink(final.c_str());
    ::unlink(temporary_.c_str());
    ::rmdir(folder_.c_str());  // each only when nothing is in it
    ::rmdir(folder_.parent_path().c_str());
    stage_ = Stage::Done;
    file_.reset();
    replaced_.reset();
}

FormerFile::FormerFile(fs::path path) : path_(std::move(path)), file_(lockedAt(path_)) {
    struct stat found {};
    if (::lstat(path_.c_str(), &found) == 0)
        found_ = found;
}

void FormerFile::remove() const noexcept {
    struct stat found {};
    if (found_ && ::lstat(path_.c_str(), &found) == 0 && isSameFile(*found_, found))
        ::unlink(path_.c_str());
}

}  // namespace tessaly::tessalyd
