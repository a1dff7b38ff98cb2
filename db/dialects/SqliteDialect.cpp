#include <dlfcn.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif
#include <strings.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "db/dialects/Dialect.h"
#include "db/dialects/SqliteProgress.h"

namespace tessaly::db {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view Log = "-wal";

/// The header says whether the database is used with a write-ahead log.
bool hasLogMode(const fs::path& file) {
    constexpr std::size_t WriteVersion = 18;
    std::array<char, 20> header{};
    std::ifstream stream{file, std::ios::binary};
    stream.read(header.data(), header.size());
    return stream && header[WriteVersion] == 2;
}

bool canWriteIn(const fs::path& folder) {
    return access(folder.empty() ? "." : folder.c_str(), W_OK) == 0;
}

/// The path as SQLite reads it in a URI, and ODBC in a connect string.
std::string uri(const fs::path& file, const char* mode) {
    std::string result = "file:";
    for (const char c : file.string()) {
        constexpr std::string_view Marks = "%?#;{}=";
        constexpr std::string_view Digits = "0123456789ABCDEF";
        const auto byte = static_cast<unsigned char>(c);
        if (Marks.find(c) == std::string_view::npos)
            result.push_back(c);
        else
            result.append("%").append(1, Digits[byte >> 4U]).append(1, Digits[byte & 15U]);
    }
    return result + "?" + mode;
}

/// The value of a word of a connect string; empty without one.
std::string wordOf(const std::string& connectString, const std::string& name) {
    std::istringstream words{connectString};
    for (std::string word; std::getline(words, word, ';');) {
        if (word.size() > name.size() && word[name.size()] == '=' &&
            strncasecmp(word.c_str(), name.c_str(), name.size()) == 0)
            return word.substr(name.size() + 1);
    }
    return {};
}

/// An attribute of a data source. ODBC's library for that remembers for a while what it has read, as long as
/// it is loaded: it is loaded as the driver does it, for no longer than a session, so that a data source that
/// was mended is seen at once.
std::string attributeOf(const std::string& dataSource, const char* name, const char* otherwise) {
    struct Closer {
        void operator()(void* library) const noexcept { ::dlclose(library); }
    };
    const std::unique_ptr<void, Closer> library{::dlopen("libodbcinst.so.2", RTLD_NOW | RTLD_LOCAL)};
    using Read = int (*)(const char*, const char*, const char*, char*, int, const char*);
    const auto read =
        library ? reinterpret_cast<Read>(::dlsym(library.get(), "SQLGetPrivateProfileString")) : nullptr;
#if defined(__SANITIZE_ADDRESS__)
    const __lsan::ScopedDisabler disabler;  // what it remembers is lost with it
#endif
    std::array<char, 32> value{};
    if (read == nullptr ||
        read(dataSource.c_str(), name, otherwise, value.data(), value.size(), "odbc.ini") <= 0)
        return otherwise;
    return value.data();
}

/// How long the driver waits for another's lock: as the connect string says, or the data source, or else as
/// it comes.
std::chrono::milliseconds lockWaitOf(const std::string& connectString) {
    constexpr const char* UsualWait = "100000";
    std::string wait = wordOf(connectString, "Timeout");
    if (wait.empty())
        wait = attributeOf(wordOf(connectString, "DSN"), "Timeout", UsualWait);
    return std::chrono::milliseconds{std::strtol(wait.c_str(), nullptr, 0)};
}

class SqliteDialect final : public Dialect {
  public:
    using Dialect::Dialect;

    [[nodiscard]] std::string_view engineName() const override { return "SQLite"; }

    [[nodiscard]] bool isDriver(std::string_view library) const override {
        return library.find("sqlite") != std::string_view::npos;
    }

    /// NoCreat: the driver makes an empty database of a path that does not exist. A mistyped path in the data
    /// source must fail instead.
    [[nodiscard]] std::string connectWords(Purpose purpose) const override {
        return purpose == Purpose::DurableWrites ? "NoCreat=1;SyncPragma=FULL" : "NoCreat=1";
    }

    [[nodiscard]] std::string lockWaitWords(std::chrono::milliseconds wait) const override {
        return "Timeout=" + std::to_string(wait.count());
    }

    /// The driver connects to anything and looks at the file with the first statement; a file that is no
    /// database, or locked, or unreadable is to fail the connecting already.
    [[nodiscard]] std::string opening(std::chrono::milliseconds /*lockWait*/) const override {
        return "SELECT COUNT(*) FROM sqlite_master";
    }

    [[nodiscard]] std::vector<std::string> settings(Purpose purpose) const override {
        switch (purpose) {
            case Purpose::Snapshot:
                return {"PRAGMA query_only = 1"};
            case Purpose::Load:  // an interrupted load is deleted, a complete one flushed
                return {"PRAGMA journal_mode = DELETE", "PRAGMA synchronous = OFF"};
            case Purpose::General:
            case Purpose::Walk:
            case Purpose::DurableWrites:
            case Purpose::Queries:
                break;
        }
        return {};
    }

    [[nodiscard]] std::string currentSeconds() const override {
        return "CAST(strftime('%s','now') AS INTEGER)";
    }

    [[nodiscard]] bool buffersInTransactions() const override { return true; }

    [[nodiscard]] bool keepsLeftSets() const override { return true; }

    // SQLCancel would free the statement that is running: endsStatementsFromElsewhere() stays false.
    void expectConnection() const override { expectSqliteConnection(); }
    [[nodiscard]] std::unique_ptr<Progress> progress(const std::string& connectString) const override {
        return sqliteProgress([connectString] { return lockWaitOf(connectString); });
    }

    [[nodiscard]] std::vector<std::string> compaction(
        const std::vector<std::string>& /*tables*/) const override {
        return {"VACUUM"};
    }

    [[nodiscard]] bool keepsFiles() const override { return true; }

    [[nodiscard]] std::string listOfFiles() const override { return "PRAGMA database_list"; }

    [[nodiscard]] std::span<const SideFile> sideFiles() const override {
        static constexpr std::array SideFiles{SideFile{Log, true}, SideFile{"-shm", false},
                                              SideFile{"-journal", true}};
        return SideFiles;
    }

    [[nodiscard]] ReadOnlyAccess readOnlyAccess(const fs::path& file) const override {
        // The data source may ask for a journal mode, which would be written into the file. No word of ODBC
        // takes that back; a mode that the engine does not know changes nothing.
        const std::string words = "JournalMode=keep";
        if (!hasLogMode(file))
            return {words + ";Database=" + uri(file, "mode=ro")};
        fs::path log = file;
        log += Log;
        if (fs::exists(log))
            return {words + ";Database=" + uri(file, "mode=ro")};  // its writer's log and index stay
        // Whoever reads a database with a log makes the log. As one that could write, it also takes it away.
        if (canWriteIn(file.parent_path()) && access(file.c_str(), W_OK) == 0)
            return {words};
        return {words + ";Database=" + uri(file, "immutable=1"), file, std::move(log)};
    }

    [[nodiscard]] std::string copyIntoFile() const override { return "VACUUM INTO ?"; }

    [[nodiscard]] std::string soundnessCheck() const override { return "PRAGMA integrity_check(1)"; }

  protected:
    /// The driver answers every constraint, and a trigger's RAISE too, with HY000 and native code 19: only
    /// the text tells a duplicate key from the others.
    [[nodiscard]] FaultKind kindOfRecord(const Diagnostic& record) const override {
        constexpr int Constraint = 19;
        if (record.nativeCode == Constraint && !record.sqlState.starts_with("23") &&
            record.message.find("UNIQUE constraint failed") != std::string::npos)
            return FaultKind::DuplicateKey;
        return Dialect::kindOfRecord(record);
    }
};

}  // namespace

[[nodiscard]] std::unique_ptr<Dialect> sqliteDialect(Naming naming) {
    return std::make_unique<SqliteDialect>(std::move(naming));
}

}  // namespace tessaly::db
