#include "db/dialects/SqliteProgress.h"

#include <sqlite3.h>

#include <chrono>
#include <optional>
#include <thread>
#include <utility>

namespace tessaly::db {

namespace {

/// Of SQLite's virtual machine between two calls: some microseconds, unless a row takes long by itself.
constexpr int Instructions = 100;

thread_local sqlite3* openedByThisThread = nullptr;

int noteOpened(sqlite3* connection, char** /*message*/, const sqlite3_api_routines* /*functions*/) {
    openedByThisThread = connection;
    return SQLITE_OK;
}

class SqliteProgress final : public Progress {
  public:
    SqliteProgress(sqlite3* connection, LockWait lockWait)
        : connection_(connection), askLockWait_(std::move(lockWait)) {}

    /// A connection that nobody ever listens to has no handler, which would cost it something.
    void setListener(Listener* listener) noexcept override {
        listener_ = listener;
        if (std::exchange(isDenied_, false))
            sqlite3_set_authorizer(connection_, nullptr, nullptr);
        if (listener == nullptr || hasHandler_)
            return;
        sqlite3_progress_handler(connection_, Instructions, &SqliteProgress::call, this);
        // In place of the driver's, which asks nobody.
        sqlite3_busy_handler(connection_, &SqliteProgress::waitForLock, this);
        hasHandler_ = true;
    }

  private:
    static int call(void* self) {
        Listener* const listener = static_cast<SqliteProgress*>(self)->listener_;
        return listener != nullptr && listener->endsStatement() ? 1 : 0;
    }

    /// Waits once more for another's lock, and returns 1; or 0, and the statement fails.
    static int waitForLock(void* self, int before) {
        constexpr std::chrono::milliseconds Interval{10};
        auto& own = *static_cast<SqliteProgress*>(self);
        const auto now = std::chrono::steady_clock::now();
        if (before == 0)
            own.waitsSince_ = now;
        if (call(self) != 0) {
            own.deny();
            return 0;
        }
        if (now - own.waitsSince_ >= own.lockWait())
            return 0;
        std::this_thread::sleep_for(Interval);
        return 1;
    }

    /// The driver itself runs a statement again and again for as long as it is to wait for a lock. It gives
    /// up at once where the statement fails for another reason: it is not permitted any more.
    void deny() noexcept {
        isDenied_ = true;
        sqlite3_set_authorizer(
            connection_,
            [](void*, int, const char*, const char*, const char*, const char*) { return SQLITE_DENY; },
            nullptr);
    }

    std::chrono::milliseconds lockWait() {
        if (!lockWait_)
            lockWait_ = askLockWait_();
        return *lockWait_;
    }

    sqlite3* const connection_;
    const LockWait askLockWait_;
    std::optional<std::chrono::milliseconds> lockWait_;
    std::chrono::steady_clock::time_point waitsSince_;
    Listener* listener_ = nullptr;
    bool hasHandler_ = false;
    bool isDenied_ = false;
};

}  // namespace

void expectSqliteConnection() {
    // A function that is registered already is not registered twice.
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(noteOpened));
    openedByThisThread = nullptr;
}

std::unique_ptr<Progress> sqliteProgress(LockWait lockWait) {
    if (openedByThisThread == nullptr)
        return nullptr;
    return std::make_unique<SqliteProgress>(openedByThisThread, std::move(lockWait));
}

}  // namespace tessaly::db
