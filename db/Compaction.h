#pragma once

#include <string>
#include <vector>

#include "db/Connection.h"

namespace tessaly::db {

/// Gives the space of deleted rows back to the file system, and has the engine count anew what its plans rest
/// on; `tables` are there, in any case of their names. Not inside a transaction. It takes as long as writing
/// all of the tables, blocks meanwhile, and needs room for another copy of the largest.
///
/// An engine with a server does one table after the other, each wholly or not at all, and shuts others out of
/// the one that it is at. It breaks off soon after this process has ended, in whatever way. One with a file
/// does all at once. Throws db::Error, also where the login may not do it: then nothing has happened.
void compact(const Connection& connection, const std::vector<std::string>& tables);

}  // namespace tessaly::db
