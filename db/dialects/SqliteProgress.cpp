#include "db/dialects/SqliteProgress.h"

#include <sqlite3.h>

#include <chrono>
#include <thread>

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
    SqliteProgress(sqlite3* connection, std::chrono::milliseconds lockWait)
        : connection_(connection), lockWait_(lockWait) {}

    /// A connection that nobody ever listens to has no handler, which would cost it something.
    void setListener(Listener* listener) noexcept override {
        listener_ = listener;
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
        if (call(self) != 0 || now - own.waitsSince_ >= own.lockWait_)
            return 0;
        std::this_thread::sleep_for(Interval);
        return 1;
    }

    sqlite3* const connection_;
    const std::chrono::milliseconds lockWait_;
    std::chrono::steady_clock::time_point waitsSince_;
    Listener* listener_ = nullptr;
    bool hasHandler_ = false;
};

}  // namespace

void expectSqliteConnection() {
    // A function that is registered already is not registered twice.
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(noteOpened));
    openedByThisThread = nullptr;
}

std::unique_ptr<Progress> sqliteProgress(std::chrono::milliseconds lockWait) {
    return openedByThisThread != nullptr ? std::make_unique<SqliteProgress>(openedByThisThread, lockWait)
                                         : nullptr;
}

}  // namespace tessaly::db
