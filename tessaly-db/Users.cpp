#include "tessaly-db/Users.h"

#include <stdexcept>

#include "db/Query.h"
#include "passwords/PasswordEncoder.h"
#include "tessaly-db/Text.h"

namespace tessaly::tool {

void requireUserName(const std::string& name) {
    requireTypeable(name, "The user name");
    if (name.front() == ' ' || name.back() == ' ')  // the user editor looks a trimmed name up
        throw std::runtime_error("The user name must not begin or end with a blank");
}

bool hasUser(const db::Connection& connection, const std::string& name) {
    db::Query query{connection, "SELECT UserName FROM Users WHERE UserName=?"};
    return query.bind(1, db::varchar(name)).open().next();
}

void addAdministrator(const db::Connection& connection, const std::string& name,
                      const std::string& password) {
    // WLogin is no right: it would leave the password to another system.
    db::execute(
        connection,
        "INSERT INTO Users (UserName, UserPwd, Signature, DcmAdmin, DcmUpdate, DcmDelete, Move, Refert,"
        " Send, Backup, Import, ROI, ModTags, WLogin)"
        " VALUES (?, ?, '', 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0)",
        {db::varchar(name), db::varchar(PasswordEncoder{}.encode(password))});
}

void setPassword(const db::Connection& connection, const std::string& name, const std::string& password) {
    db::execute(connection, "UPDATE Users SET UserPwd=? WHERE UserName=?",
                {db::varchar(PasswordEncoder{}.encode(password)), db::varchar(name)});
}

}  // namespace tessaly::tool
