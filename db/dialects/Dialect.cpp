#include "db/dialects/Dialect.h"

#include <algorithm>

namespace tessaly::db {

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

}  // namespace

std::string Dialect::folded(std::string_view given) const {
    std::string result{given};
    if (naming_.folding == Naming::Folding::None)
        return result;
    const char first = naming_.folding == Naming::Folding::Lower ? 'A' : 'a';
    const char last = naming_.folding == Naming::Folding::Lower ? 'Z' : 'z';
    for (char& c : result)
        if (c >= first && c <= last)
            c = static_cast<char>(c ^ 0x20);
    return result;
}

std::string Dialect::quoted(std::string_view exactName) const {
    if (naming_.quote.empty() || naming_.quote == " ")  // ODBC's word for an engine that knows no quotes
        return std::string{exactName};
    std::string result = naming_.quote;
    for (const char c : exactName)
        result.append(naming_.quote.front() == c ? 2 : 1, c);
    return result + naming_.quote;
}

std::string Dialect::rewritten(const std::string& statement) const {
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
        } else if (isWordPart(text[at])) {
            std::size_t stop = at;
            while (stop < text.size() && isWordPart(text[stop]))
                ++stop;
            const auto word = text.substr(at, stop - at);
            result.append(isReserved(word) ? quoted(folded(word)) : std::string{word});
            at += word.size();
        } else {
            result.push_back(text[at++]);
        }
    }
    return result;
}

std::string Dialect::insertNew(std::string_view table, std::string_view columns,
                               std::string_view rows) const {
    return std::string{"INSERT INTO "}
        .append(table)
        .append(" (")
        .append(columns)
        .append(") VALUES ")
        .append(rows)
        .append(" ON CONFLICT DO NOTHING");
}

std::string Dialect::updateEach(std::string_view table, std::string_view column, std::string_view key,
                                std::size_t rows) const {
    const std::string name{table};
    std::string text = "UPDATE " + name + " SET " + std::string{column} + "=Given.column1 FROM (VALUES (?,?)";
    for (std::size_t i = 1; i < rows; ++i)
        text += ",(?,?)";
    return text + ") AS Given WHERE " + name + '.' + std::string{key} + "=Given.column2";
}

FaultKind Dialect::kindOf(std::span<const Diagnostic> records) const {
    auto kind = FaultKind::Other;
    for (const Diagnostic& record : records)
        kind = std::max(kind, kindOfRecord(record));
    return kind;
}

// Most drivers say "integrity constraint" (class 23) of a duplicate key and of little else that can happen
// here.
FaultKind Dialect::kindOfRecord(const Diagnostic& record) const {
    const std::string& state = record.sqlState;
    if (state == "23505" || state == "23000")
        return FaultKind::DuplicateKey;
    if (state.starts_with("40"))
        return FaultKind::Conflict;
    if (state.starts_with("08"))
        return FaultKind::LostSession;
    return FaultKind::Other;
}

// An engine that none of this is known of has none of it.

std::string Dialect::lockWaitWords(std::chrono::milliseconds /*wait*/) const {
    return {};
}

std::string Dialect::neverConnecting(const std::string& /*driver*/) const {
    return {};
}

std::string Dialect::opening(std::chrono::milliseconds /*lockWait*/) const {
    return {};
}

std::optional<std::string> Dialect::refusal(const Row& /*firstRow*/) const {
    return std::nullopt;
}

std::vector<std::string> Dialect::settings(Purpose /*purpose*/) const {
    return {};
}

std::string Dialect::rowLock(RowLock /*lock*/, std::string_view /*table*/, OnLockedRow /*onLocked*/) const {
    return {};
}

std::vector<std::string> Dialect::compaction(const std::vector<std::string>& /*tables*/) const {
    return {};
}

std::string Dialect::withoutCompaction() const {
    return "There is no compaction for databases of " + std::string{engineName()};
}

std::string Dialect::compactionCheck(const std::vector<std::string>& /*tables*/) const {
    return {};
}

std::string Dialect::listOfFiles() const {
    return {};
}

ReadOnlyAccess Dialect::readOnlyAccess(const std::filesystem::path& /*file*/) const {
    return {};
}

std::string Dialect::copyIntoFile() const {
    return {};
}

std::string Dialect::soundnessCheck() const {
    return {};
}

std::string Dialect::backupCommand(const Attributes& /*dataSource*/,
                                   const std::filesystem::path& /*file*/) const {
    return {};
}

std::optional<std::string> Dialect::loggedPassword(const Attributes& /*dataSource*/) const {
    return std::nullopt;
}

bool Dialect::isReserved(std::string_view /*word*/) const {
    return false;
}

}  // namespace tessaly::db
