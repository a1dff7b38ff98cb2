#include "db/Walk.h"

namespace tessaly::db {

Walk::Walk(const Connection& connection, std::string text)
    : own_(connection.walker()), query_(own_ ? *own_ : connection, std::move(text)), rows_(query_.open()) {}

}  // namespace tessaly::db
