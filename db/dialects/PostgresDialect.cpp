#include <array>
#include <cstdlib>
#include <memory>
#include <utility>

#include "base/Text.h"
#include "db/dialects/Dialect.h"

namespace tessaly::db {

namespace fs = std::filesystem;

namespace {

/// The engine's own library waits without end for a server that lets itself be called and then says nothing,
/// unless it is told otherwise. Only here can it be told without a contradiction to what the data source may
/// say itself, or the environment of who started the program; and only before there are threads.
[[maybe_unused]] const int boundedConnecting = setenv("PGCONNECT_TIMEOUT", "10", 0);  // seconds an address

constexpr std::string_view Driver = "psqlodbc";

bool walks(Purpose purpose) {
    return purpose == Purpose::Walk || purpose == Purpose::Snapshot || purpose == Purpose::Load;
}

/// As a POSIX shell reads one word.
std::string shellWord(const std::string& text) {
    constexpr std::string_view Plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./=:,@%+";
    if (!text.empty() && text.find_first_not_of(Plain) == std::string::npos)
        return text;
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? std::string{"'\\''"} : std::string{c};
    return word + "'";
}

std::string firstOf(const Dialect::Attributes& dataSource, std::initializer_list<const char*> names) {
    for (const char* name : names)
        if (auto value = dataSource(name); !value.empty())
            return value;
    return {};
}

using Words = std::vector<std::pair<std::string, std::string>>;

/// What the driver hands to the client's library as it stands: "word=value word='a value'".
Words wordsOf(std::string_view text) {
    if (text.starts_with('{') && text.ends_with('}'))
        text = text.substr(1, text.size() - 2);
    const auto skipBlanks = [&text] {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    };
    Words words;
    for (skipBlanks(); text.find('=') != std::string_view::npos; skipBlanks()) {
        std::string name{text.substr(0, text.find('='))};
        name.erase(std::min(name.find(' '), name.size()));
        text.remove_prefix(text.find('=') + 1);
        skipBlanks();
        const bool quoted = text.starts_with('\'');
        std::size_t at = quoted ? 1 : 0;
        std::string value;
        for (; at < text.size() && text[at] != (quoted ? '\'' : ' '); ++at) {
            if (text[at] == '\\' && at + 1 < text.size())
                ++at;
            value.push_back(text[at]);
        }
        text.remove_prefix(std::min(at + (quoted ? 1 : 0), text.size()));
        words.emplace_back(std::move(name), std::move(value));
    }
    return words;
}

/// How safe the line to the server is to be, as the environment says it to the server's own programs. Of the
/// other words some are for the driver alone, and one is the password.
std::string assignments(const Dialect::Attributes& dataSource) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 8> Variables{
        {{"sslmode", "PGSSLMODE"},
         {"sslrootcert", "PGSSLROOTCERT"},
         {"sslcert", "PGSSLCERT"},
         {"sslkey", "PGSSLKEY"},
         {"sslcrl", "PGSSLCRL"},
         {"channel_binding", "PGCHANNELBINDING"},
         {"gssencmode", "PGGSSENCMODE"},
         {"connect_timeout", "PGCONNECT_TIMEOUT"}}};
    Words words = wordsOf(dataSource("pqopt"));
    if (auto mode = dataSource("SSLmode"); !mode.empty())
        words.insert(words.begin(), {"sslmode", std::move(mode)});
    std::string line;
    for (const auto& [name, value] : words)
        for (const auto& [word, variable] : Variables)
            if (name == word)
                line.append(variable).append("=").append(shellWord(value)).append(" ");
    return line;
}

class PostgresDialect final : public Dialect {
  public:
    using Dialect::Dialect;

    [[nodiscard]] std::string_view engineName() const override { return "PostgreSQL"; }

    [[nodiscard]] bool isDriver(std::string_view library) const override {
        return library.starts_with(Driver);
    }

    /// Protocol: the driver's way with a statement that fails in a transaction. 0 leaves the transaction
    /// failed until it is rolled back; with 1 the driver rolls back by itself, and the statements that follow
    /// are kept without those before. Transaction relies on 0. CommLog, Debug: the driver's logs lie where
    /// everybody can read them, and show the password. pqopt: a plan for any values reads whole tables where
    /// a page has few rows.
    [[nodiscard]] std::string connectWords(Purpose purpose) const override {
        std::string words = "Protocol=7.4-0;CommLog=0;Debug=0;UseDeclareFetch=";
        words += walks(purpose) ? "1;Fetch=1000" : "0";
        if (purpose == Purpose::Queries)
            words += ";pqopt={options='-c plan_cache_mode=force_custom_plan'}";
        return words;
    }

    /// The driver turns its log on where the system's configuration of drivers says so, and Debian's does. A
    /// connection's own word for "off" counts until the driver has disconnected its last one: then, with its
    /// very last message, it makes a file for the log that everybody can read. A connection that never comes
    /// about is not counted out again; one beside each session keeps the log off to the end.
    [[nodiscard]] std::string neverConnecting(const std::string& driver) const override {
        if (!isDriver(driver))
            return {};
        // Its address is no folder: nobody is called.
        return "Driver=" + driver + ";Servername=/dev/null;Port=1;Database=none;UID=none";
    }

    /// Waits for a lock as long as the embedded data source does, unless somebody says how long.
    [[nodiscard]] std::string opening(std::chrono::milliseconds lockWait) const override {
        const bool said = lockWait > std::chrono::milliseconds::zero();
        const std::string wait =
            "set_config('lock_timeout', '" + (said ? std::to_string(lockWait.count()) : "5000") + "', false)";
        return "SELECT current_setting('server_version_num') AS Version, "
               "current_setting('server_encoding') AS Encoding, " +
               (said ? wait : "CASE current_setting('lock_timeout') WHEN '0' THEN " + wait + " END");
    }

    [[nodiscard]] std::optional<std::string> refusal(const Row& firstRow) const override {
        constexpr long long Oldest = 15;
        constexpr long long Major = 10'000;
        const long long version = std::atoll(firstRow("Version").c_str());
        if (version < Oldest * Major)
            return "The server is PostgreSQL " + std::to_string(version / Major) + "; " +
                   std::to_string(Oldest) + " is the oldest that the database can be used with";
        if (const std::string encoding = firstRow("Encoding"); encoding != "UTF8")
            return "The database has the encoding " + encoding + "; it has to be UTF8";
        return std::nullopt;
    }

    [[nodiscard]] std::vector<std::string> settings(Purpose purpose) const override {
        if (purpose == Purpose::Snapshot)
            return {"SET SESSION CHARACTERISTICS AS TRANSACTION ISOLATION LEVEL REPEATABLE READ, READ ONLY"};
        return {};
    }

    [[nodiscard]] std::string currentSeconds() const override {
        return "CAST(floor(extract(epoch FROM clock_timestamp())) AS BIGINT)";
    }

    [[nodiscard]] std::string rowLock(RowLock lock, std::string_view table,
                                      OnLockedRow onLocked) const override {
        std::string words = lock == RowLock::Removal ? " FOR KEY SHARE" : " FOR UPDATE";
        if (!table.empty())
            words.append(" OF ").append(table);
        return onLocked == OnLockedRow::Skip ? words + " SKIP LOCKED" : words;
    }

    [[nodiscard]] bool supportsConcurrentWriters() const override { return true; }

    [[nodiscard]] bool buffersResultSets(Purpose purpose) const override { return !walks(purpose); }

    [[nodiscard]] bool endsStatementsFromElsewhere() const override { return true; }

    [[nodiscard]] std::vector<std::string> compaction(const std::vector<std::string>& tables) const override {
        // The server notices that nobody waits for the statement any more, within these milliseconds. It
        // would finish it first, and nobody else could read the table until then.
        std::vector<std::string> statements{"SET client_connection_check_interval TO 50"};
        for (const std::string& table : tables)
            statements.push_back("VACUUM (FULL, ANALYZE) " + quoted(folded(table)));
        return statements;
    }

    [[nodiscard]] std::string compactionCheck(const std::vector<std::string>& tables) const override {
        if (tables.empty())
            return {};
        // Of somebody else's table it says so in a warning, which the driver keeps for itself, and succeeds.
        std::string list;
        for (const std::string& table : tables)
            list += (list.empty() ? "'" : ", '") + quoted(folded(table)) + "'::regclass";
        return "SELECT 'The table ' || relname || ' cannot be compacted: it belongs to ' || "
               "pg_get_userbyid(relowner) AS Refusal FROM pg_class WHERE oid IN (" +
               list +
               ") AND NOT pg_has_role(relowner, 'USAGE') AND NOT (SELECT pg_has_role(datdba, 'USAGE') FROM "
               "pg_database WHERE datname = current_database())";
    }

    [[nodiscard]] std::string backupCommand(const Attributes& dataSource,
                                            const fs::path& file) const override {
        std::string line = assignments(dataSource) + "pg_dump --format=custom";
        const auto add = [&line](const char* option, const std::string& value) {
            if (!value.empty())
                line += std::string{" "} + option + "=" + shellWord(value);
        };
        add("--host", firstOf(dataSource, {"Servername", "Server"}));
        add("--port", dataSource("Port"));
        add("--username", firstOf(dataSource, {"Username", "UserName", "UID"}));
        add("--dbname", dataSource("Database"));
        add("--file", fs::absolute(file).lexically_normal().string());
        return line;
    }

    /// The driver's logs lie in /tmp, for everybody to read. These programs turn them off by themselves;
    /// others go by the data source.
    [[nodiscard]] std::optional<std::string> loggedPassword(const Attributes& dataSource) const override {
        for (const char* log : {"CommLog", "Debug"})
            if (const std::string value = dataSource(log); std::atoi(value.c_str()) != 0)
                return std::string{log} + "=" + value +
                       ": its driver leaves a log in /tmp that shows the password";
        return std::nullopt;
    }

  protected:
    [[nodiscard]] FaultKind kindOfRecord(const Diagnostic& record) const override {
        constexpr std::array EndedByTheServer{"57P01", "57P02", "57P03"};
        for (const char* state : EndedByTheServer)
            if (record.sqlState == state)
                return FaultKind::LostSession;
        return record.sqlState == "0A000" ? FaultKind::StalePlan : Dialect::kindOfRecord(record);
    }

    /// The bare word is the session's user, a constant.
    [[nodiscard]] bool isReserved(std::string_view word) const override {
        return base::sameName(word, "User");
    }
};

}  // namespace

[[nodiscard]] std::unique_ptr<Dialect> postgresDialect(Naming naming) {
    return std::make_unique<PostgresDialect>(std::move(naming));
}

}  // namespace tessaly::db
