#include "db/Connection.h"

#include <array>
#include <utility>

#include "base/Text.h"
#include "db/Odbc.h"
#include "db/Query.h"

namespace tessaly::db {

Connection::Connection() = default;
Connection::~Connection() = default;

void Connection::establish() {
    if (sharedSession_)
        throw Error("The connection is already open");
    sharedSession_ = std::make_shared<detail::SharedSession>(connectString_, cursorDriver_, lockWait_,
                                                             purpose_, isUnwanted_);
}

void Connection::setStop(std::function<bool()> isUnwanted) {
    isUnwanted_ = std::move(isUnwanted);
    if (sharedSession_)
        sharedSession_->setStop(isUnwanted_);
}

void Connection::close() {
    if (sharedSession_ && (sharedSession_.use_count() > 1 || sharedSession_->isInUse()))
        throw Error("A statement of the connection is still in use");
    sharedSession_.reset();
}

bool Connection::hasLostSession() const noexcept {
    return sharedSession_ && sharedSession_->isLost();
}

bool Connection::needsWalker() const {
    return dialect().buffersResultSets(sharedSession()->purpose());
}

std::unique_ptr<Connection> Connection::walker() const {
    auto own = std::make_unique<Connection>();
    own->connectString_ = connectString_;
    own->cursorDriver_ = cursorDriver_;
    own->purpose_ = Purpose::Walk;
    own->lockWait_ = lockWait_;
    own->isUnwanted_ = isUnwanted_;
    own->establish();
    return own;
}

bool Connection::hasTable(std::string_view wanted) const {
    const detail::Statement tables{sharedSession()->current(), "the catalogue of tables"};
    tables.check(SQLTables(tables.get(), nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0));
    constexpr SQLUSMALLINT NameColumn = 3;
    std::array<char, 256> name{};
    SQLLEN length = 0;
    while (tables.check(SQLFetch(tables.get())) != SQL_NO_DATA) {
        tables.check(SQLGetData(tables.get(), NameColumn, SQL_C_CHAR, name.data(), name.size(), &length));
        if (length != SQL_NULL_DATA && base::sameName(name.data(), wanted))
            return true;
    }
    return false;
}

const Dialect& Connection::dialect() const {
    return sharedSession()->current()->dialect();
}

std::string Connection::databaseFile() const {
    const std::string list = dialect().listOfFiles();
    if (list.empty())
        return {};
    Query query{*this, list};
    ResultSet files = query.open();
    while (files.next()) {
        if (files.text("name") == "main")
            return files.text("file");
    }
    return {};
}

const std::shared_ptr<detail::SharedSession>& Connection::sharedSession() const {
    if (!sharedSession_)
        throw Error("The connection to the database is closed");
    return sharedSession_;
}

}  // namespace tessaly::db
