#include "db/Walk.h"

namespace tessaly::db {

Walk::Walk(const Connection& connection, std::string text, On on)
    : own_(on == On::ItsConnection || connection.needsWalker() ? connection.walker() : nullptr),
      query_(own_ ? *own_ : connection, std::move(text)),
      rows_(query_.open()) {}

}  // namespace tessaly::db
