#pragma once

#include <string>

#include "db/Connection.h"

namespace tessaly::tool {

/// Throws std::runtime_error for a name that the console could not take.
void requireUserName(const std::string& name);

[[nodiscard]] bool hasUser(const db::Connection& connection, const std::string& name);

/// Adds a user with all rights. `password` is as typed. Throws db::Error, db::DuplicateKey for a
/// name that is taken.
void addAdministrator(const db::Connection& connection, const std::string& name, const std::string& password);

/// Changes nothing where there is no such user. Throws db::Error.
void setPassword(const db::Connection& connection, const std::string& name, const std::string& password);

}  // namespace tessaly::tool
