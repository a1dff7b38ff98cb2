#include "db/Walk.h"

namespace tessaly::db {

Walk::Walk(const Connection& connection, std::string text)
    : own_(connection.walker()), query_(own_ ? *own_ : connection, std::move(text)), rows_(query_.open()) {}

bool Walk::next() {
    if (rows_.next())
        return true;
    // The PostgreSQL driver gives the end of the data also where it has lost the rest of it.
    if (own_)
        execute(*own_, "SELECT 1");
    return false;
}

}  // namespace tessaly::db
