#include "tessalyd/store/DatabaseWatch.h"

#include <sys/stat.h>

#include <condition_variable>
#include <exception>
#include <mutex>

#include "tessalyd/Log.h"
#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

namespace {

constexpr std::chrono::milliseconds Interval{250};

/// A file that is still being copied is not opened: what this server wrote into it would be overwritten.
constexpr std::chrono::seconds SettledAfter{1};

}  // namespace

DatabaseWatch::DatabaseWatch(std::optional<db::DatabaseFile> file, Actions actions)
    : actions_(std::move(actions)), file_(std::move(file)) {
    if (file_)
        thread_ = std::jthread{[this](const std::stop_token& stop) { run(stop); }};
}

void DatabaseWatch::run(const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any stopped;
    std::unique_lock lock{mutex};
    while (!stopped.wait_for(lock, stop, Interval, [&stop] { return stop.stop_requested(); }))
        look();
}

void DatabaseWatch::look() {
    if (!isLost_ && !file_->isInPlace()) {
        isLost_ = true;
        const bool isGone = !db::DatabaseFile::at(file_->path());
        OFLOG_ERROR(serverLog(), "the database file "
                                     << file_->path().c_str() << " was "
                                     << (isGone ? "removed" : "replaced by another")
                                     << "; no objects are stored until it can be used again");
        actions_.lost();
    }
    if (!isLost_ || !isBack())
        return;
    isLost_ = false;
    fault_.clear();
    seen_.reset();
    actions_.back();
}

bool DatabaseWatch::isBack() {
    const bool isTheSame = file_->isInPlace();
    if (!isTheSame && !hasSettled())
        return false;
    try {
        db::Connection connection;
        connection.setLockWait(Interval);
        openDatabase(connection);
        (void)readConfiguration(connection);  // throws where the tables are missing or not of this version
        file_ = db::fileOf(connection);
    } catch (const std::exception& error) {
        if (fault_ != error.what())
            OFLOG_ERROR(serverLog(), "the database cannot be used yet: " << error.what());
        fault_ = error.what();
        return false;
    }
    OFLOG_INFO(serverLog(), "the database file "
                                << file_->path().c_str()
                                << (isTheSame ? " is in its place again"
                                              : " is another one, and is used from now on; restart the "
                                                "server to have its configuration read"));
    return true;
}

bool DatabaseWatch::hasSettled() {
    struct stat found {};
    if (::stat(file_->path().c_str(), &found) < 0 || found.st_size == 0) {
        seen_.reset();
        return false;
    }
    const std::string now = std::to_string(found.st_ino) + ' ' + std::to_string(found.st_size) + ' ' +
                            std::to_string(found.st_mtim.tv_sec) + ' ' +
                            std::to_string(found.st_mtim.tv_nsec);
    const auto time = std::chrono::steady_clock::now();
    if (seen_ != now) {
        seen_ = now;
        seenAt_ = time;
    }
    return time - seenAt_ >= SettledAfter;
}

}  // namespace tessaly::tessalyd
