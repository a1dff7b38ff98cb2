#include "db/Engine.h"

#include <algorithm>
#include <array>

#include "db/Text.h"

namespace tessaly::db::detail {

namespace {

// ASCII alone, whatever the locale.
bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool isWordPart(char c) {
    return isLetter(c) || (c >= '0' && c <= '9') || static_cast<unsigned char>(c) >= 0x80;
}

/// Where the text that begins at `start` with a quote mark, or the comment that begins there, ends; `start`
/// if none does. What has no end reaches to the end of the statement: the engine will say so.
std::size_t skipOpaque(std::string_view text, std::size_t start) {
    const auto after = [&](std::string_view end, std::size_t from) {
        const auto found = text.find(end, from);
        return found == std::string_view::npos ? text.size() : found + end.size();
    };
    const std::string_view rest = text.substr(start);
    if (rest.front() == '\'' || rest.front() == '"')
        return after(rest.substr(0, 1), start + 1);  // a doubled mark reads as two texts side by side
    if (rest.starts_with("--"))
        return after("\n", start);
    if (rest.starts_with("/*"))
        return after("*/", start + 2);
    return start;
}

/// The name between the bracket at `start` and its end; empty where the bracket holds no name, or stands for
/// an element of an array.
std::string_view bracketed(std::string_view text, std::size_t start) {
    if (start > 0 && (isWordPart(text[start - 1]) || text[start - 1] == ']' || text[start - 1] == ')'))
        return {};
    const auto end = text.find(']', start);
    if (end == std::string_view::npos)
        return {};
    const auto inside = text.substr(start + 1, end - start - 1);
    const auto belongs = [](char c) { return isWordPart(c) || c == ' '; };
    const bool isName =
        !inside.empty() && isLetter(inside.front()) && std::all_of(inside.begin(), inside.end(), belongs);
    return isName ? inside : std::string_view{};
}

/// How many characters at `start` lock the rows that a statement reads; 0 for none.
std::size_t rowLock(std::string_view text, std::size_t start) {
    for (const std::string_view lock : {"FOR UPDATE", "FOR KEY SHARE"}) {
        if (!text.substr(start).starts_with(lock))
            continue;
        std::size_t end = start + lock.size();
        if (constexpr std::string_view Of{" OF "}; text.substr(end).starts_with(Of)) {
            end += Of.size();
            while (end < text.size() && isWordPart(text[end]))
                ++end;
        }
        return end - start;
    }
    return 0;
}

}  // namespace

bool Engine::isPostgres() const {
    return name == "PostgreSQL";
}

bool Engine::isSqlite() const {
    return name == "SQLite";
}

std::string Engine::folded(std::string_view given) const {
    std::string result{given};
    if (folding == Folding::None)
        return result;
    const char first = folding == Folding::Lower ? 'A' : 'a';
    const char last = folding == Folding::Lower ? 'Z' : 'z';
    for (char& c : result)
        if (c >= first && c <= last)
            c = static_cast<char>(c ^ 0x20);
    return result;
}

std::string Engine::quoted(std::string_view exactName) const {
    if (quote.empty() || quote == " ")  // ODBC's word for an engine that knows no quotes
        return std::string{exactName};
    std::string result = quote;
    for (const char c : exactName)
        result.append(quote.front() == c ? 2 : 1, c);
    return result + quote;
}

std::string Engine::rewritten(const std::string& statement) const {
    const std::string_view text = statement;
    std::string result;
    result.reserve(text.size() + 8);
    for (std::size_t at = 0; at < text.size();) {
        if (const auto end = skipOpaque(text, at); end != at) {
            result.append(text.substr(at, end - at));
            at = end;
        } else if (const auto inBrackets = text[at] == '[' ? bracketed(text, at) : std::string_view{};
                   !inBrackets.empty()) {
            result.append(quoted(folded(inBrackets)));
            at += inBrackets.size() + 2;
        } else if (const auto lock = supportsConcurrentWriters() ? 0 : rowLock(text, at); lock > 0) {
            at += lock;
        } else if (isWordPart(text[at])) {
            std::size_t stop = at;
            while (stop < text.size() && isWordPart(text[stop]))
                ++stop;
            const auto word = text.substr(at, stop - at);
            result.append(isPostgres() && sameName(word, "User") ? quoted(folded(word)) : std::string{word});
            at += word.size();
        } else {
            result.push_back(text[at++]);
        }
    }
    return result;
}

std::string Engine::opening(std::chrono::milliseconds lockWait) const {
    // The SQLite driver connects to anything and looks at the file with the first statement; a file that is
    // no database, or locked, or unreadable is to fail the connecting already.
    if (isSqlite())
        return "SELECT COUNT(*) FROM sqlite_master";
    if (!isPostgres())
        return {};
    // Waits for a lock as long as the embedded data source does, unless somebody says how long.
    const bool said = lockWait > std::chrono::milliseconds::zero();
    const std::string wait =
        "set_config('lock_timeout', '" + (said ? std::to_string(lockWait.count()) : "5000") + "', false)";
    return "SELECT current_setting('server_version_num') AS Version, "
           "current_setting('server_encoding') AS Encoding, " +
           (said ? wait : "CASE current_setting('lock_timeout') WHEN '0' THEN " + wait + " END");
}

std::string Engine::listOfFiles() const {
    return isSqlite() ? "PRAGMA database_list" : std::string{};
}

std::vector<std::string> Engine::compaction(const std::vector<std::string>& tables) const {
    if (isSqlite())
        return {"VACUUM"};
    if (!isPostgres())
        return {};
    // The server notices that nobody waits for the statement any more, within these milliseconds. It would
    // finish it first, and nobody else could read the table until then.
    std::vector<std::string> statements{"SET client_connection_check_interval TO 50"};
    for (const std::string& table : tables)
        statements.push_back("VACUUM (FULL, ANALYZE) " + quoted(folded(table)));
    return statements;
}

std::string Engine::compactionCheck(const std::vector<std::string>& tables) const {
    if (!isPostgres() || tables.empty())
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

std::optional<std::string> refusal(long long version, std::string_view encoding) {
    constexpr long long Oldest = 15;
    constexpr long long Major = 10'000;
    if (version < Oldest * Major)
        return "The server is PostgreSQL " + std::to_string(version / Major) + "; " + std::to_string(Oldest) +
               " is the oldest that the database can be used with";
    if (encoding != "UTF8")
        return "The database has the encoding " + std::string{encoding} + "; it has to be UTF8";
    return std::nullopt;
}

std::string connectWords(bool walks) {
    // NoCreat: the SQLite driver makes an empty database of a path that does not exist. A mistyped path in
    // the data source must fail instead. Protocol: the PostgreSQL driver's way with a statement that fails in
    // a transaction. 0 leaves the transaction failed until it is rolled back; with 1 the driver rolls back by
    // itself, and the statements that follow are kept without those before. Transaction relies on 0. CommLog,
    // Debug: that driver's logs lie where everybody can read them, and show the password.
    std::string words = ";NoCreat=1;Protocol=7.4-0;CommLog=0;Debug=0;UseDeclareFetch=";
    return words += walks ? "1;Fetch=1000" : "0";
}

std::string waitWords(std::chrono::milliseconds lockWait) {
    return lockWait > std::chrono::milliseconds::zero() ? ";Timeout=" + std::to_string(lockWait.count()) : "";
}

// Most drivers say "integrity constraint" (class 23) of a duplicate key and of little else that can happen
// here; PostgreSQL's says 23505 of nothing else. The SQLite driver answers every constraint, and a trigger's
// RAISE too, with HY000 and native code 19: there only the text tells a duplicate key from the others.
bool isDuplicateKey(const Diagnostic& record) {
    constexpr int SqliteConstraint = 19;
    if (record.sqlState.starts_with("23"))
        return record.sqlState == "23505" || record.sqlState == "23000";
    return record.nativeCode == SqliteConstraint &&
           record.message.find("UNIQUE constraint failed") != std::string::npos;
}

bool isConflict(const Diagnostic& record) {
    return record.sqlState.starts_with("40");
}

bool isLostSession(const Diagnostic& record) {
    constexpr std::array EndedByTheEngine{"57P01", "57P02", "57P03"};
    return record.sqlState.starts_with("08") || std::find(EndedByTheEngine.begin(), EndedByTheEngine.end(),
                                                          record.sqlState) != EndedByTheEngine.end();
}

bool isStalePlan(const Diagnostic& record) {
    return record.sqlState == "0A000";
}

}  // namespace tessaly::db::detail
