#pragma once

#include <filesystem>
#include <string>

namespace tessaly::tool {

/// What a new database begins with.
struct NewDatabase {
    std::string dsn;                  ///< whose configuration names the file or the server
    std::string administrator;        ///< the one user
    std::string password;             ///< the user's, as typed
    std::filesystem::path imageRoot;  ///< of the one port; made where it is missing; empty: beside the
                                      ///< database's file, or in the user's folder for data
};

/// Makes the data source's database, whole or not at all, and never touches one that exists. Throws
/// std::runtime_error or what derives from it.
void createDatabase(const NewDatabase& wanted);

}  // namespace tessaly::tool
