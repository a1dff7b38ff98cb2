#include "maintenance/FileCompaction.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>

#include "maintenance/FileLease.h"
#include "maintenance/FileSwap.h"
#include "maintenance/SqliteFile.h"

namespace tessaly::maintenance {

namespace fs = std::filesystem;

namespace {

void removeSideFiles(const fs::path& database) {
    for (const char* suffix : {"-journal", "-wal", "-shm"})
        fs::remove(database.string() + suffix);
}

[[noreturn]] void refuseInUse() {
    throw std::runtime_error(sqlite3_errstr(SQLITE_BUSY));
}

/// True when the kernel vouches that nobody else has the file open, false where it cannot tell.
bool isAlone(const FileLease& lease) {
    if (lease.state() == FileLease::State::InUse)
        refuseInUse();
    return lease.state() == FileLease::State::Held;
}

FileLease leaseWhenFree(const fs::path& file, const std::function<void()>& keepAlive) {
    for (auto i = LockWait / LockInterval;; --i) {
        if (FileLease lease{file, O_RDWR}; lease.state() != FileLease::State::InUse || i == 0)
            return lease;
        keepAlive();
        std::this_thread::sleep_for(LockInterval);
    }
}

bool isWritable(const fs::path& file) {
    return faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) == 0;
}

/// The engine would fall back to reading, and fail in the middle with less of a reason.
void requireWritable(const fs::path& target) {
    if (!isWritable(target))
        throw std::system_error(errno, std::generic_category(), target.string());
}

/// The other names of a file would go on leading to the old one.
void requireOneName(const fs::path& target) {
    if (fs::hard_link_count(target) > 1)
        throw std::runtime_error(target.string() + " has more than one name");
}

/// Takes the lock that shuts every other connection out, readers too, and keeps it until the file is closed.
/// True when the database has a write-ahead log.
bool lockAlone(SqliteFile& database) {
    database.run("PRAGMA locking_mode=EXCLUSIVE");
    database.run("BEGIN EXCLUSIVE");
    database.run("COMMIT");
    return database.run("PRAGMA journal_mode") == "wal";
}

void setJournalMode(SqliteFile& database, const std::string& mode) {
    if (database.run("PRAGMA journal_mode=" + mode) != mode)
        refuseInUse();
}

/// True when another process works on a file of that name: it has the file open, or, where the kernel does
/// not tell, holds one of the engine's locks on it. Who may not write to it gets no such answer, and is to
/// leave it alone.
bool isInUse(const fs::path& file) {
    switch (FileLease{file}.state()) {
        case FileLease::State::InUse:
            return true;
        case FileLease::State::Held:
            return false;
        case FileLease::State::Unavailable:
            break;
    }
    if (!isWritable(file))
        return true;  // the engine would fall back to reading, and get the one lock that proves nothing
    try {
        const std::function<void()> keepAlive = [] {};
        SqliteFile database{file, keepAlive};
        lockAlone(database);
        return false;
    } catch (const std::exception& fault) {
        return fault.what() == std::string_view{sqlite3_errstr(SQLITE_BUSY)};
    }
}

/// A file left by a compaction that did not end is no database to be opened, and its journals would be taken
/// for those of the next one. But the name may be that of a database which is none of ours to delete.
void removeStale(const fs::path& temporary, const fs::path& target, const fs::path& dataSource) {
    if (fs::exists(temporary)) {
        if (fs::equivalent(temporary, target))
            throw std::runtime_error(temporary.string() + " is the database itself");
        if (fs::exists(dataSource) && fs::equivalent(temporary, dataSource))
            throw std::runtime_error(temporary.string() + " is the database of the data source");
        if (isInUse(temporary))
            throw std::runtime_error(temporary.string() + " is in use");
    }
    fs::remove(temporary);
    removeSideFiles(temporary);
}

void writeCompacted(SqliteFile& source, const fs::path& temporary) {
    // The engine would make the file readable to all, with patients in it. Where this fails the engine fails
    // too, and says why.
    close(open(temporary.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR));
    // The flush comes later and once, when the copy is known to be sound. The database itself is never
    // written without one.
    source.run("PRAGMA synchronous=OFF");
    try {
        source.run("VACUUM INTO ?", temporary.string());
    } catch (...) {
        source.run("PRAGMA synchronous=FULL");
        throw;
    }
    source.run("PRAGMA synchronous=FULL");
}

/// Moves all that is in the write-ahead log into the file, onto the disk, and cuts the log to nothing.
void emptyLog(SqliteFile& database) {
    if (database.run("PRAGMA wal_checkpoint(TRUNCATE)") != "0")
        refuseInUse();
}

/// True when somebody has written to the log, or when that cannot be told.
bool hasLog(const fs::path& database) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(database.string() + "-wal", error);
    return error ? error != std::errc::no_such_file_or_directory : size > 0;
}

/// The old file goes only when the new one is known to be sound: every page of every tree, every row. That
/// the indexes hold the table's rows is not looked up again: the engine copies them entry by entry, and the
/// look-up takes longer than the compaction.
void checkCompacted(const fs::path& temporary, bool writeAhead, const std::function<void()>& keepAlive) {
    SqliteFile copy{temporary, keepAlive};
    copy.run("PRAGMA locking_mode=EXCLUSIVE");
    // Its pages have just been written and are in the system's cache: they are read where they lie. Not so
    // the old file's: a disk's error would come as a signal.
    copy.run("PRAGMA mmap_size=1099511627776");
    if (writeAhead)
        setJournalMode(copy, "wal");
    if (const std::string verdict = copy.run("PRAGMA quick_check(1)"); verdict != "ok")
        throw std::runtime_error(verdict);
}

/// The compacted file in the target's own folder, where a rename can put it into its place: a copy where the
/// database was chosen by a symbolic link in another folder. Nobody would look for the copy there, so it goes
/// when it was not renamed.
class Staged {
  public:
    /// Removes what a killed run left under its name.
    Staged(const fs::path& temporary, const fs::path& target, const fs::path& dataSource)
        : temporary_(temporary),
          path_(fs::equivalent(temporary.parent_path(), target.parent_path())
                    ? temporary
                    : fs::path{target.string() + ".compacted"}) {
        if (path_ != temporary_)
            removeStale(path_, target, dataSource);
    }
    ~Staged() {
        std::error_code ignored;
        if (path_ != temporary_)
            fs::remove(path_, ignored);
    }
    Staged(const Staged&) = delete;
    Staged& operator=(const Staged&) = delete;

    void make() const {
        if (path_ != temporary_)
            fs::copy_file(temporary_, path_);
    }
    [[nodiscard]] const fs::path& path() const noexcept { return path_; }

  private:
    fs::path temporary_;
    fs::path path_;
};

/// Whoever refused us the file has it open and may refuse this too; then the mode is his to choose.
void restoreWriteAhead(const fs::path& database) noexcept {
    try {
        SqliteFile{database, [] {}}.run("PRAGMA journal_mode=wal");
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
    }
}

/// The copy page by page into the file of the database, in one transaction: until its end the engine can take
/// every page back, and whoever opens the file after a power failure does.
void writeInto(SqliteFile& database, const fs::path& compacted, const std::function<void()>& keepAlive) {
    SqliteFile copy{compacted, keepAlive};
    database.takeOver(copy, keepAlive);  // the journal mode, which stands on the first page, included
}

/// What changes when somebody writes to a file or puts another in its place.
struct Stamp {
    explicit Stamp(const fs::path& file) {
        if (stat(file.c_str(), &status_) != 0)
            refuseInUse();
    }
    bool operator==(const Stamp& other) const {
        const auto& a = status_;
        const auto& b = other.status_;
        return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
               a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
    }

  private:
    struct stat status_ {};
};

/// Renames the copy to the database at an instant when nobody has that open. Whoever opened it since the
/// beginning waits for the engine's lock, on a file that is about to be nobody's: he has his turn first, and
/// the copy is used where he has written nothing.
///
/// The database keeps its journal mode until he has gone. A server's connection, finding that changed, would
/// change it back, which cannot be told from writing.
void replaceAlone(std::optional<SqliteFile>& source, bool writeAhead, const fs::path& copy,
                  const fs::path& target, const std::function<void()>& keepAlive) {
    constexpr std::chrono::milliseconds ClockTick{20};  // a coarse one's: whatever is written later is seen
    if (writeAhead)
        emptyLog(*source);
    std::this_thread::sleep_for(ClockTick);
    const Stamp locked{target};
    source.reset();  // the lease wants the engine's own descriptor gone, too
    const FileLease lease = leaseWhenFree(target, keepAlive);
    if (!isAlone(lease) || locked != Stamp{target} || hasLog(target))
        refuseInUse();
    removeSideFiles(target);
    // Whoever comes now waits in his open(), and then has the old file. A write-ahead log is found by the
    // database's path: he would take the new one's for his.
    if (writeAhead)
        markWithoutLog(lease.descriptor());
    replaceFile(copy, target);
}

}  // namespace

fs::path temporaryPathOf(const fs::path& database) {
    const std::string& path = database.native();
    const std::size_t extension = path.rfind(".mdb");
    if (extension == std::string::npos)
        throw std::runtime_error("The name of the database file has no \".mdb\": " + path);
    return path.substr(0, extension) + "2.mdb";
}

void FileCompaction::run(const db::Connection& /*connection*/, Progress& progress) {
    const std::function<void()> keepAlive = [&progress] { progress.breathe(); };
    const fs::path temporary = temporaryPathOf(fs::absolute(database_));
    const fs::path target = fs::canonical(database_);
    requireWritable(target);
    requireOneName(target);
    removeStale(temporary, target, dataSource_);
    const Staged staged{temporary, target, dataSource_};

    const bool leases = isAlone(leaseWhenFree(target, keepAlive));
    EarlyFlush earlyFlush{temporary};
    const std::function<void()> breatheAndFlush = [&] {
        earlyFlush.advance();
        keepAlive();
    };
    std::optional<SqliteFile> source{std::in_place, target, breatheAndFlush};
    const bool writeAhead = lockAlone(*source);
    writeCompacted(*source, temporary);
    earlyFlush.finish();
    checkCompacted(temporary, writeAhead, keepAlive);
    staged.make();
    const bool replaces = copyAttributes(target, staged.path());
    if (replaces)
        flushFile(staged.path());

    try {
        if (replaces && leases) {
            replaceAlone(source, writeAhead, staged.path(), target, keepAlive);
        } else {
            // A write-ahead log is found by the database's path: the old one's, taken for the new one's,
            // would ruin it. So the old database gives its log up first, with everything in it.
            setJournalMode(*source, "delete");
            if (replaces) {
                removeSideFiles(target);  // a killed process leaves an index of its log that nobody needs now
                replaceFile(staged.path(), target);
            } else {
                writeInto(*source, staged.path(), keepAlive);
            }
            source.reset();
        }
    } catch (...) {
        source.reset();
        if (writeAhead)
            restoreWriteAhead(target);
        throw;
    }
    fs::remove(temporary);
}

}  // namespace tessaly::maintenance
