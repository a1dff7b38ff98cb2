#include "db/UpdatableRow.h"

#include <algorithm>

#include "base/Number.h"
#include "base/Text.h"
#include "db/Error.h"
#include "db/Query.h"
#include "db/dialects/Dialect.h"

namespace tessaly::db {

UpdatableRow::UpdatableRow(const Connection& connection, std::string table, std::string_view key,
                           const std::string& select)
    : connection_(connection), table_(std::move(table)) {
    Query query{connection, select};
    ResultSet row = query.open();
    for (const ResultSet::Column& column : row.columns())
        fields_.push_back({.name = column.name, .isText = column.isText});
    key_ = indexOf(key);
    exists_ = row.next();
    if (!exists_)
        return;
    for (Field& each : fields_)
        each.value = row.optionalText(each.name);
    keyRead_ = fields_[key_].value;
}

std::size_t UpdatableRow::indexOf(std::string_view column) const {
    const auto found = std::find_if(fields_.begin(), fields_.end(), [column](const Field& each) {
        return base::sameName(each.name, column);
    });
    if (found == fields_.end())
        throw Error("Unknown column " + std::string{column});
    return static_cast<std::size_t>(found - fields_.begin());
}

bool UpdatableRow::isText(std::string_view column) const {
    return fields_[indexOf(column)].isText;
}

const std::optional<std::string>& UpdatableRow::value(std::string_view column) const {
    return fields_[indexOf(column)].value;
}

void UpdatableRow::set(std::string_view column, std::optional<std::string> value) {
    Field& target = fields_[indexOf(column)];
    if (value && !target.isText && !base::decimalNumber(*value))
        throw Error("The column " + std::string{column} + " takes a number, not \"" + *value + "\"");
    target.value = std::move(value);
    target.set = true;
}

Param UpdatableRow::Field::parameter() const {
    if (isText || !value)
        return value ? varchar(*value) : null(isText ? Type::Varchar : Type::Integer);
    const auto whole = base::wholeNumber(*value);
    return whole ? integer(*whole) : undeclared(*value);
}

/// The name is the catalogue's own, which an engine that folds names finds by quotes alone.
std::string UpdatableRow::quoted(const Field& field) const {
    return connection_.dialect().quoted(field.name);
}

UpdatableRow::Change UpdatableRow::change() const {
    Change change;
    const auto append = [](std::string& list, const std::string& item) {
        list += (list.empty() ? "" : ", ") + item;
    };
    for (const Field& each : fields_) {
        if (!each.set)
            continue;
        append(change.columns, quoted(each));
        append(change.markers, "?");
        append(change.assignments, quoted(each) + "=?");
        change.values.push_back(each.parameter());
    }
    return change;
}

void UpdatableRow::update() {
    if (!exists_)
        throw Error("There is no row to be changed");
    Change change = this->change();
    if (change.values.empty())
        return;
    const Field& key = fields_[key_];
    change.values.push_back(Field{.name = key.name, .isText = key.isText, .value = keyRead_}.parameter());
    Query query{connection_,
                "UPDATE " + table_ + " SET " + change.assignments + " WHERE " + quoted(key) + "=?"};
    if (query.bindAll(std::move(change.values)).execute() == 0)
        throw Error("The row is no longer there");
    written();
}

void UpdatableRow::insert() {
    Change change = this->change();
    Query query{connection_,
                "INSERT INTO " + table_ + " (" + change.columns + ") VALUES (" + change.markers + ")"};
    query.bindAll(std::move(change.values)).execute();
    written();
}

void UpdatableRow::written() {
    exists_ = true;
    keyRead_ = fields_[key_].value;
    for (Field& each : fields_)
        each.set = false;
}

}  // namespace tessaly::db
