#include "db/DatabaseFile.h"

#include <sys/stat.h>

#include "db/Odbc.h"

namespace tessaly::db {

std::optional<DatabaseFile> DatabaseFile::at(const std::string& path) {
    struct stat found {};
    if (::stat(path.c_str(), &found) < 0)
        return std::nullopt;
    return DatabaseFile{path, found.st_dev, found.st_ino};
}

bool DatabaseFile::isInPlace() const noexcept {
    struct stat found {};
    return ::stat(path_.c_str(), &found) == 0 && found.st_dev == device_ && found.st_ino == inode_;
}

std::optional<DatabaseFile> fileOf(const Connection& connection) {
    return connection.sharedSession()->file();
}

bool isInPlace(const Connection& connection) {
    const auto used = fileOf(connection);
    return !used || used->isInPlace();
}

}  // namespace tessaly::db
