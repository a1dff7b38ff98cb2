#include "tessaly-db/Target.h"

#include <stdexcept>

#include "db/Query.h"
#include "schema/Catalogue.h"
#include "tessaly-db/DataSource.h"

namespace tessaly::tool {

namespace {

void requireNoTables(const db::Connection& connection, const std::string& dsn,
                     const schema::Definitions& definitions) {
    const auto there = schema::readCatalogue(connection);
    for (const auto& table : definitions.tables)
        if (there.contains(table.name))
            throw std::runtime_error("The database of the data source " + dsn + " has a table " + table.name +
                                     " already: it is left as it is");
}

void run(const db::Connection& connection, const std::vector<std::string>& statements) {
    for (const auto& statement : statements)
        db::execute(connection, statement);
}

}  // namespace

Target::Target(const std::string& dsn) {
    connection_.setPurpose(db::Purpose::Load);
    if (keepsFile(dsn)) {
        file_.emplace(databaseFile(dsn), dialectOf(dsn));
        connect(connection_, dsn, file_->temporary().string());
    } else {
        connect(connection_, dsn);
    }
    definitions_ = schema::definitions(engine());
    transaction_.emplace(connection());
    requireNoTables(connection(), dsn, definitions_);
}

void Target::requireFree(const std::string& dsn) {
    if (keepsFile(dsn)) {
        NewFile::requireFree(databaseFile(dsn), dialectOf(dsn));
        return;
    }
    db::Connection connection;
    connect(connection, dsn);
    requireNoTables(connection, dsn, schema::definitions(schema::engine(connection)));
}

const schema::Engine& Target::engine() const {
    return schema::engine(connection_);
}

void Target::makeTables() const {
    run(connection(), definitions_.before);
    for (const auto& table : definitions_.tables)
        db::execute(connection(), table.statement);
    makeIndexes(true);
    run(connection(), definitions_.rows);
}

void Target::makeIndexes() const {
    makeIndexes(false);
}

void Target::makeIndexes(bool unique) const {
    for (const auto& index : definitions_.indexes)
        if (index.unique == unique)
            db::execute(connection(), index.statement);
}

void Target::keep() {
    transaction_->commit();
    transaction_.reset();
    run(connection(), definitions_.settings);
    connection_.close();
    if (file_)
        file_->putInPlace();
}

}  // namespace tessaly::tool
