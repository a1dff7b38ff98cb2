#include "archive/ArchiveFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <random>
#include <system_error>
#include <vector>

#include "archive/FileLock.h"
#include "archive/Folder.h"

namespace tessaly::archive {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view Prefix = ".tessalyd-";
constexpr std::string_view Suffix = ".part";

/// One that no other server has, on this machine or another, and no earlier one had.
std::string temporaryName() {
    static const std::string server =
        std::to_string(::getpid()) + '-' + std::to_string(std::random_device{}());
    static std::atomic<unsigned long long> last{0};
    return std::string{Prefix} + server + '-' + std::to_string(++last) + std::string{Suffix};
}

/// Leads to an open file, whether it has a name or not.
std::string linkOf(const base::FileDescriptor& file) {
    return "/proc/self/fd/" + std::to_string(file.get());
}

/// What is locked is to be found under its name by others: it has not been taken away in the moment before.
bool isInAFolder(const base::FileDescriptor& file) noexcept {
    struct stat found {};
    return ::fstat(file.get(), &found) == 0 && found.st_nlink > 0;
}

bool moved(const base::FileDescriptor& folder, const std::string& from, const std::string& to,
           unsigned flags) noexcept {
    return ::renameat2(folder.get(), from.c_str(), folder.get(), to.c_str(), flags) == 0;
}

}  // namespace

bool isTemporaryName(std::string_view name) noexcept {
    if (!name.starts_with(Prefix) || !name.ends_with(Suffix))
        return false;
    const std::string_view numbers = name.substr(Prefix.size(), name.size() - Prefix.size() - Suffix.size());
    return !numbers.empty() && numbers.find_first_not_of("0123456789-") == std::string_view::npos;
}

ArchiveFile::ArchiveFile(fs::path folder, std::string name, Report report)
    : report_(std::move(report)),
      folder_(std::move(folder)),
      name_(std::move(name)),
      openedRoot_(openRoot(root())) {
    if (!openedRoot_.isOpen())
        fail(root());
    // Mostly the folders are there. Those that are made here, a store that fails in another thread may take
    // away again before the file is in them.
    constexpr int Attempts = 5;
    for (int attempt = 0; !file_.isOpen(); ++attempt) {
        try {
            if (attempt > 0)
                makeFolders();
            openFolder();
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

void ArchiveFile::fail(const fs::path& path) const {
    const std::error_code why{errno, std::generic_category()};
    report_(Severity::Debug, path.string() + ": " + why.message());
    const bool isLink = why == std::errc::too_many_symbolic_link_levels || why == std::errc::not_a_directory;
    throw std::system_error{
        why, "below " + root().string() + (isLink ? ", where a folder is no folder or a symbolic link" : "")};
}

void ArchiveFile::openFolder() {
    openedFolder_ = openBeneath(openedRoot_, folder_.parent_path().filename() / folder_.filename(),
                                O_RDONLY | O_DIRECTORY);
    if (!openedFolder_.isOpen())
        fail(folder_);
}

void ArchiveFile::makeFolders() {
    // The root is the administrator's: a mistyped one, or one that is not mounted, must fail.
    const fs::path study = folder_.parent_path();
    makeFolder(openedRoot_, study);
    const base::FileDescriptor opened = openBeneath(openedRoot_, study.filename(), O_PATH | O_DIRECTORY);
    if (!opened.isOpen())
        fail(study);
    makeFolder(opened, folder_);
}

/// Makes a folder that lasts. One that is there may be another store's, which has not flushed it yet.
void ArchiveFile::makeFolder(const base::FileDescriptor& parent, const fs::path& folder) const {
    constexpr mode_t Mode = 0777;  // less the process's mask
    if (::mkdirat(parent.get(), folder.filename().c_str(), Mode) < 0 && errno != EEXIST)
        fail(folder);
    if (!flushFolder(parent))
        fail(folder.parent_path());
}

constexpr mode_t Mode = 0666;  // less the process's mask

void ArchiveFile::open() {
    if (!openUnnamed())
        openNamed();
}

/// Returns false where files without a name are not to be had, as on network file systems.
bool ArchiveFile::openUnnamed() {
    static const bool canBeNamedLater = ::access("/proc/self/fd", X_OK) == 0;
    if (!canBeNamedLater)
        return false;
    file_ = base::FileDescriptor{::openat(openedFolder_.get(), ".", O_RDWR | O_TMPFILE | O_CLOEXEC, Mode)};
    if (!file_.isOpen()) {
        if (errno != EOPNOTSUPP && errno != EISDIR)
            fail(path());
        return false;
    }
    // Nobody else can have it. Where locks are not to be had, nobody takes anything away.
    static_cast<void>(lockFile(file_));
    return true;
}

void ArchiveFile::openNamed() {
    // Before it is locked, a server that is just starting may take it for a left-over one.
    constexpr int Attempts = 5;
    for (int attempt = 1;; ++attempt) {
        temporary_ = temporaryName();
        base::FileDescriptor file{
            ::openat(openedFolder_.get(), temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, Mode)};
        if (!file.isOpen())
            fail(path());
        // Where locks are not to be had, nobody takes anything away.
        const bool ours = lockFile(file) != FileLock::OfSomebody && isInAFolder(file);
        if (ours || attempt == Attempts) {
            file_ = std::move(file);
            return;
        }
        ::unlinkat(openedFolder_.get(), temporary_.c_str(), 0);
    }
}

void ArchiveFile::write(std::span<const char> data) {
    while (!data.empty()) {
        const ssize_t written = ::write(file_.get(), data.data(), data.size());
        if (written < 0 && errno != EINTR)
            fail(path());
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
            fail(path());
        offset += static_cast<std::size_t>(read);
        target = target.subspan(static_cast<std::size_t>(read));
    }
}

std::size_t ArchiveFile::size() const {
    struct stat found {};
    if (::fstat(file_.get(), &found) < 0)
        fail(path());
    return static_cast<std::size_t>(found.st_size);
}

base::FileDescriptor ArchiveFile::openForReading() const {
    base::FileDescriptor file{temporary_.empty() ? ::open(linkOf(file_).c_str(), O_RDONLY | O_CLOEXEC)
                                                 : ::openat(openedFolder_.get(), temporary_.c_str(),
                                                            O_RDONLY | O_NOFOLLOW | O_CLOEXEC)};
    if (!file.isOpen())
        fail(path());
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
    return entryAt(openedFolder_, name_).has_value();
}

/// The final path leads to this file. It does not where a folder was moved, or the root is another one by
/// now: nobody would find what has its name in the folder that was opened.
bool ArchiveFile::isWhereItBelongs() const noexcept {
    const base::FileDescriptor now = openRoot(root());
    const base::FileDescriptor folder =
        openBeneath(now, folder_.parent_path().filename() / folder_.filename(), O_PATH | O_DIRECTORY);
    return folder.isOpen() && isNamed(file_, folder, name_);
}

void ArchiveFile::flush() {
    if (!flushed_ && ::fsync(file_.get()) < 0)
        fail(path());
    flushed_ = true;
}

void ArchiveFile::giveName() {
    try {
        moveToName();
    } catch (...) {
        withdraw();
        throw;
    }
}

void ArchiveFile::publish() {
    if (stage_ == Stage::Writing)
        giveName();
    if (!isWhereItBelongs()) {
        withdraw();
        errno = ESTALE;
        fail(folder_ / name_);
    }
}

/// Gives a file without a name its final one or, where something has that, a temporary one.
void ArchiveFile::link() {
    const auto isLinkedAs = [this, from = linkOf(file_)](const std::string& name) {
        return ::linkat(AT_FDCWD, from.c_str(), openedFolder_.get(), name.c_str(), AT_SYMLINK_FOLLOW) == 0;
    };
    constexpr int Attempts = 5;
    for (int attempt = 1;; ++attempt) {
        if (isLinkedAs(name_)) {
            stage_ = Stage::Published;
            return;
        }
        if (errno == EEXIST) {
            if (std::string name = temporaryName(); isLinkedAs(name)) {
                temporary_ = std::move(name);
                return;
            }
        }
        if (errno != ENOENT || attempt == Attempts)
            fail(path());
        // A store that failed has taken the folder away: it looked empty.
        makeFolders();
        openFolder();
    }
}

void ArchiveFile::moveToName() {
    flush();
    if (temporary_.empty())
        link();
    while (stage_ == Stage::Writing) {
        if (moved(openedFolder_, temporary_, name_, RENAME_NOREPLACE)) {
            stage_ = Stage::Published;
            break;
        }
        const bool isTaken = errno == EEXIST;
        if (const auto found = entryAt(openedFolder_, name_); found && !S_ISREG(found->st_mode)) {
            setAside(name_);
            continue;
        }
        // What is replaced gets the temporary name, by which only its lock tells it from a left-over file.
        replaced_ = lockedAt(openedFolder_, name_);
        if (moved(openedFolder_, temporary_, name_, RENAME_EXCHANGE)) {
            stage_ = Stage::Replaced;
        } else if (!isTaken || errno != ENOENT) {  // it has not merely vanished meanwhile
            // A file system that can neither: a file there is lost then even if this one is not kept.
            if (!moved(openedFolder_, temporary_, name_, 0))
                fail(folder_ / name_);
            stage_ = Stage::Published;
        }
    }
    if (!flushFolder(openedFolder_))
        fail(folder_);
}

/// Gives what stands in the object's place, and is no file, a name that nobody has. It may hold somebody's
/// data, so it is kept.
void ArchiveFile::setAside(const std::string& name) const {
    constexpr int Most = 1000;
    for (int number = 1; number <= Most; ++number) {
        const std::string aside = name_ + ".aside-" + std::to_string(number);
        if (entryAt(openedFolder_, aside))
            continue;
        // Of file systems that cannot do without replacing, nothing of that name is known.
        const bool isMoved = moved(openedFolder_, name, aside, RENAME_NOREPLACE) ||
                             (errno == EINVAL && moved(openedFolder_, name, aside, 0));
        if (isMoved)
            report_(Severity::Error, "below " + root().string() + ": what stood in the place of the file " +
                                         name_ + " is no file; it is now " + aside);
        if (isMoved || errno == ENOENT)
            return;
        if (errno != EEXIST)
            break;
    }
    fail(folder_ / name_);
}

void ArchiveFile::keep() noexcept {
    if (stage_ == Stage::Replaced && ::unlinkat(openedFolder_.get(), temporary_.c_str(), 0) < 0 &&
        errno == EISDIR) {  // it came between the look at the name and the exchange
        try {
            setAside(temporary_);
        } catch (const std::exception&) {  // it stays under the temporary name
            errno = 0;
        }
    }
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
    if (openedFolder_.isOpen()) {
        // Where files cannot be locked, another server may have put its own there since: that is not this
        // one's to take away.
        const bool isNamedYet = stage_ != Stage::Writing && isNamed(file_, openedFolder_, name_);
        if (stage_ == Stage::Replaced && isNamedYet)
            moved(openedFolder_, temporary_, name_, RENAME_EXCHANGE);
        else if (stage_ == Stage::Published && isNamedYet)
            ::unlinkat(openedFolder_.get(), name_.c_str(), 0);
        if (!temporary_.empty())
            ::unlinkat(openedFolder_.get(), temporary_.c_str(), 0);
    }
    // Each folder only when nothing is in it.
    const fs::path study = folder_.parent_path().filename();
    if (const base::FileDescriptor opened = openBeneath(openedRoot_, study, O_PATH | O_DIRECTORY);
        opened.isOpen())
        ::unlinkat(opened.get(), folder_.filename().c_str(), AT_REMOVEDIR);
    ::unlinkat(openedRoot_.get(), study.c_str(), AT_REMOVEDIR);
    stage_ = Stage::Done;
    file_.reset();
    replaced_.reset();
}

}  // namespace tessaly::archive
