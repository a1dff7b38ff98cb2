#include "db/ResultSet.h"

#include <array>

#include "base/Number.h"
#include "base/Text.h"
#include "db/Odbc.h"

namespace tessaly::db {

namespace {

bool isCharacterType(SQLSMALLINT type) {
    switch (type) {
        case SQL_CHAR:
        case SQL_VARCHAR:
        case SQL_LONGVARCHAR:
        case SQL_WCHAR:
        case SQL_WVARCHAR:
        case SQL_WLONGVARCHAR:
            return true;
        default:
            return false;
    }
}

Error noNumber(std::string_view column) {
    return Error{"The column " + std::string{column} + " holds no number"};
}

}  // namespace

ResultSet::ResultSet(std::shared_ptr<detail::Statement> statement) : statement_(std::move(statement)) {
    try {
        SQLSMALLINT count = 0;
        statement_->check(SQLNumResultCols(statement_->get(), &count));
        if (statement_->columns.size() != static_cast<std::size_t>(count))
            describeColumns(count);
        cells_.resize(columns().size());
        fetched_ = fetch();
    } catch (...) {
        close();  // the query may run again
        throw;
    }
    statement_->walking = true;
}

void ResultSet::describeColumns(int count) {
    auto& columns = statement_->columns;
    columns.clear();
    for (int i = 1; i <= count; ++i) {
        std::array<SQLCHAR, 256> name{};
        SQLSMALLINT length = 0;
        SQLSMALLINT type = 0;
        statement_->check(SQLDescribeCol(statement_->get(), static_cast<SQLUSMALLINT>(i), name.data(),
                                         name.size(), &length, &type, nullptr, nullptr, nullptr));
        columns.push_back({reinterpret_cast<const char*>(name.data()), isCharacterType(type)});
    }
}

const std::vector<ResultSet::Column>& ResultSet::columns() const noexcept {
    return statement_->columns;
}

ResultSet::~ResultSet() {
    if (statement_)  // or else moved from
        close();
}

void ResultSet::close() {
    SQLFreeStmt(statement_->get(), SQL_CLOSE);
    statement_->walking = false;
    // A driver that does not reset a set that is left before its end would hold its read of the database, and
    // give the rest of the rows when the statement is run again.
    if (!ended_ && statement_->boundParams == 0 && statement_.use_count() > 1 &&
        statement_->session()->dialect().keepsLeftSets())
        statement_->prepare();
}

bool ResultSet::fetch() {
    ended_ = true;  // also by a fetch that fails
    ended_ = statement_->fetch() == SQL_NO_DATA;
    return !ended_;
}

bool ResultSet::next() {
    cellsRead_ = 0;
    onRow_ = false;  // stays so when the fetch throws
    onRow_ = fetched_ ? *fetched_ : fetch();
    fetched_.reset();
    return onRow_;
}

bool ResultSet::isNull(std::string_view column) {
    return cell(column).null;
}

const std::string& ResultSet::text(std::string_view column) {
    return cell(column).text;
}

std::optional<std::string> ResultSet::optionalText(std::string_view column) {
    const Cell& found = cell(column);
    return found.null ? std::nullopt : std::optional{found.text};
}

const std::string* ResultSet::value(std::size_t index) {
    const Cell& found = cell(index);
    return found.null ? nullptr : &found.text;
}

long long ResultSet::integer(std::string_view column) {
    const Cell& found = cell(column);
    if (found.null)
        throw Error("The column " + std::string{column} + " is empty");
    if (const auto number = base::wholePart(found.text))
        return *number;
    throw noNumber(column);
}

bool ResultSet::flag(std::string_view column) {
    const Cell& found = cell(column);
    if (found.null)
        return false;
    if (const auto number = base::decimalNumber(found.text))
        return *number != 0;
    throw noNumber(column);
}

ResultSet::Cell& ResultSet::cell(std::string_view column) {
    if (!onRow_)
        throw Error("There is no current row");
    std::size_t index = 0;
    const auto& columns = statement_->columns;
    while (index < columns.size() && !base::sameName(columns[index].name, column))
        ++index;
    if (index == columns.size())
        throw Error("Unknown column " + std::string{column});
    return cell(index);
}

ResultSet::Cell& ResultSet::cell(std::size_t index) {
    if (!onRow_)
        throw Error("There is no current row");
    if (index >= cells_.size())
        throw Error("There is no column " + std::to_string(index));
    // From left to right, which every driver can, and each cell once: a second read would find no data.
    for (; cellsRead_ <= index; ++cellsRead_)
        read(cellsRead_);
    return cells_[index];
}

void ResultSet::read(std::size_t index) {
    Cell& target = cells_[index];
    target.text.clear();
    std::array<char, 1024> part;
    for (;;) {
        SQLLEN length = 0;
        const SQLRETURN result =
            statement_->check(SQLGetData(statement_->get(), static_cast<SQLUSMALLINT>(index + 1), SQL_C_CHAR,
                                         part.data(), static_cast<SQLLEN>(part.size()), &length));
        target.null = length == SQL_NULL_DATA;
        if (result == SQL_NO_DATA || target.null)
            return;
        constexpr auto Whole =
            static_cast<SQLLEN>(std::tuple_size_v<decltype(part)> - 1);  // less the final NUL
        const bool more = length == SQL_NO_TOTAL || length > Whole;
        target.text.append(part.data(), static_cast<std::size_t>(more ? Whole : length));
        if (!more)
            return;
    }
}

}  // namespace tessaly::db
