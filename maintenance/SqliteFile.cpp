#include "maintenance/SqliteFile.h"

#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace tessaly::maintenance {

namespace {

constexpr int StepsPerBreath = 10'000;  // about a millisecond's work

int callBreathe(void* keepAlive) {
    (*static_cast<const std::function<void()>*>(keepAlive))();
    return 0;  // go on
}

int waitForLock(void* keepAlive, int before) {
    if (before >= LockWait / LockInterval)
        return 0;
    callBreathe(keepAlive);
    std::this_thread::sleep_for(LockInterval);
    return 1;
}

}  // namespace

SqliteFile::SqliteFile(const std::filesystem::path& path, const std::function<void()>& keepAlive) {
    if (sqlite3_open_v2(path.c_str(), &handle_, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        // SQLite hands the pointer back as it is, though its prototype lacks const.
        sqlite3_progress_handler(handle_, StepsPerBreath, callBreathe,
                                 const_cast<std::function<void()>*>(&keepAlive));
        sqlite3_busy_handler(handle_, waitForLock, const_cast<std::function<void()>*>(&keepAlive));
        return;
    }
    const std::string description = sqlite3_errmsg(handle_);
    sqlite3_close(handle_);
    throw std::runtime_error(description);
}

SqliteFile::~SqliteFile() {
    sqlite3_close(handle_);
}

std::string SqliteFile::run(const std::string& sql, const std::string& parameter) {
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(handle_, sql.c_str(), -1, &prepared, nullptr) != SQLITE_OK)
        fail();
    const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> statement{prepared, sqlite3_finalize};
    if (sqlite3_bind_parameter_count(prepared) > 0)
        sqlite3_bind_text(prepared, 1, parameter.c_str(), -1, SQLITE_STATIC);
    std::string first;
    bool found = false;
    int result = SQLITE_ROW;
    while ((result = sqlite3_step(prepared)) == SQLITE_ROW) {
        if (const auto* text = sqlite3_column_text(prepared, 0); text != nullptr && !found)
            first = reinterpret_cast<const char*>(text);
        found = true;
    }
    if (result != SQLITE_DONE)
        fail();
    return first;
}

void SqliteFile::takeOver(SqliteFile& other, const std::function<void()>& keepAlive) {
    constexpr int PagesPerBreath = 256;
    sqlite3_backup* backup = sqlite3_backup_init(handle_, "main", other.handle_, "main");
    if (backup == nullptr)
        fail();
    int result = SQLITE_OK;
    while (result == SQLITE_OK) {
        result = sqlite3_backup_step(backup, PagesPerBreath);
        keepAlive();
    }
    if (sqlite3_backup_finish(backup) != SQLITE_OK || result != SQLITE_DONE)
        throw std::runtime_error(sqlite3_errstr(result));
}

void SqliteFile::fail() const {
    throw std::runtime_error(sqlite3_errmsg(handle_));
}

void markWithoutLog(int file) {
    // The versions of the file format that writers and readers need, as the engine documents them: 2 is a
    // write-ahead log.
    constexpr off_t VersionsAt = 18;
    constexpr std::array<char, 2> WithoutLog{1, 1};
    if (pwrite(file, WithoutLog.data(), WithoutLog.size(), VersionsAt) != ssize_t{WithoutLog.size()})
        throw std::system_error(errno, std::generic_category());
}

}  // namespace tessaly::maintenance
