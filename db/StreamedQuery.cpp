#include "db/StreamedQuery.h"

namespace tessaly::db {

StreamedQuery::StreamedQuery(const Connection& connection, std::string text, On on)
    : own_(on == On::ItsConnection || connection.needsWalker() ? connection.walker() : nullptr),
      query_(own_ ? *own_ : connection, std::move(text)),
      rows_(query_.open()) {}

}  // namespace tessaly::db
