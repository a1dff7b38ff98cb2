#include "schema/BackfillMark.h"

#include "db/Query.h"
#include "schema/Upgrade.h"

namespace tessaly::schema {

namespace {

constexpr int FirstMarkedVersion = 3;

}  // namespace

std::optional<std::string> filledTo(const db::Connection& connection) {
    if (version(connection) < FirstMarkedVersion)
        return std::string{};
    db::Query query{connection, "SELECT FilledTo FROM " + std::string{VersionTable}};
    auto rows = query.open();
    return rows.next() ? rows.optionalText("FilledTo") : std::nullopt;
}

void setFilledTo(const db::Connection& connection, const std::optional<std::string>& instance) {
    db::execute(connection, "UPDATE " + std::string{VersionTable} + " SET FilledTo=?",
                {instance ? db::varchar(*instance) : db::null(db::Type::Varchar)});
}

}  // namespace tessaly::schema
