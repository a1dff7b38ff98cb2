#include "db/dialects/SqliteProgress.h"

#include <sqlite3.h>

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
    explicit SqliteProgress(sqlite3* connection) : connection_(connection) {}

    /// A connection that nobody ever listens to has no handler, which would cost it something.
    void setListener(Listener* listener) noexcept override {
        listener_ = listener;
        if (listener == nullptr || hasHandler_)
            return;
        sqlite3_progress_handler(connection_, Instructions, &SqliteProgress::call, this);
        hasHandler_ = true;
    }

  private:
    static int call(void* self) {
        Listener* const listener = static_cast<SqliteProgress*>(self)->listener_;
        return listener != nullptr && listener->endsStatement() ? 1 : 0;
    }

    sqlite3* const connection_;
    Listener* listener_ = nullptr;
    bool hasHandler_ = false;
};

}  // namespace

void expectSqliteConnection() {
    // A function that is registered already is not registered twice.
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(noteOpened));
    openedByThisThread = nullptr;
}

std::unique_ptr<Progress> sqliteProgress() {
    return openedByThisThread != nullptr ? std::make_unique<SqliteProgress>(openedByThisThread) : nullptr;
}

}  // namespace tessaly::db
