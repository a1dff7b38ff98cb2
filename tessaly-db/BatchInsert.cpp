#include "tessaly-db/BatchInsert.h"

#include "base/Number.h"
#include "db/Error.h"
#include "db/dialects/Dialect.h"

namespace tessaly::tool {

namespace {

// Measured on both engines: from 100 on, more rows in a statement gain nothing.
constexpr std::size_t BatchRows = 100;

/// A fraction goes as the text that it is: no type of a program's own has all its digits.
db::Param param(const std::optional<std::string>& value, const schema::Column& column) {
    const bool isText = column.width || column.fractions;
    if (!value)
        return db::null(isText ? db::Type::Varchar : db::Type::Integer);
    if (isText)
        return db::varchar(*value);
    const auto number = base::wholeNumber(*value);
    if (!number)
        throw db::Error(column.name + " is not a whole number: " + *value);
    return db::integer(*number);
}

}  // namespace

BatchInsert::BatchInsert(const db::Connection& connection, const schema::Table& table, Columns columns,
                         Refused refused)
    : connection_(connection), table_(table), columns_(std::move(columns)), refused_(std::move(refused)) {}

std::string BatchInsert::statement(std::size_t count) const {
    std::string names;
    std::string marks;
    for (const auto* column : columns_) {
        names.append(names.empty() ? "" : ", ").append(column->name);
        marks.append(marks.empty() ? "?" : ",?");
    }
    std::string rows;
    for (std::size_t i = 0; i < count; ++i)
        rows.append(i == 0 ? "(" : ",(").append(marks).append(")");
    return refused_ ? connection_.dialect().insertNew(table_.name, names, rows)
                    : "INSERT INTO " + table_.name + " (" + names + ") VALUES " + rows;
}

void BatchInsert::add(const Row& row) {
    for (std::size_t i = 0; i < columns_.size(); ++i)
        params_.push_back(param(row[i], *columns_[i]));
    if (refused_)
        rows_.push_back(row);
    if (++count_ == BatchRows)
        finish();
}

void BatchInsert::finish() {
    if (refused_)
        runOrTell();
    else if (count_ > 0)
        run(std::move(params_), count_);
    params_.clear();
    params_.reserve(BatchRows * columns_.size());
    rows_.clear();
    count_ = 0;
}

long long BatchInsert::run(std::vector<db::Param> params, std::size_t count) {
    std::optional<db::Query> once;
    auto& query = count == BatchRows ? whole_ : count == 1 ? one_ : once;
    if (!query)
        query.emplace(connection_, statement(count));
    return query->bindAll(std::move(params)).execute();
}

/// No statement of it fails: in a transaction, a driver may not go on with a prepared one that has.
void BatchInsert::runOrTell() {
    if (count_ == 0)
        return;
    db::execute(connection_, "SAVEPOINT batch");
    const bool all = run(params_, count_) == static_cast<long long>(count_);
    if (!all)
        db::execute(connection_, "ROLLBACK TO SAVEPOINT batch");
    db::execute(connection_, "RELEASE SAVEPOINT batch");
    for (std::size_t i = 0; !all && i < count_; ++i) {
        const auto first = params_.begin() + static_cast<std::ptrdiff_t>(i * columns_.size());
        if (run({first, first + static_cast<std::ptrdiff_t>(columns_.size())}, 1) == 0)
            refused_(rows_[i], "stands there twice, upper and lower case being the same");
    }
}

}  // namespace tessaly::tool
