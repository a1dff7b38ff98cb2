#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace tessaly::db {

class Connection;

/// The file at a path, told from another one that takes its place.
class DatabaseFile {
  public:
    /// Nothing where there is none.
    [[nodiscard]] static std::optional<DatabaseFile> at(const std::string& path);

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    /// The path still leads to this file: it has not been removed, renamed or replaced.
    [[nodiscard]] bool isInPlace() const noexcept;

    bool operator==(const DatabaseFile&) const = default;

  private:
    DatabaseFile(std::string path, dev_t device, ino_t inode)
        : path_(std::move(path)), device_(device), inode_(inode) {}

    std::string path_;
    dev_t device_;
    ino_t inode_;
};

/// The file that the open connection works on; nothing where the engine keeps none on this machine. While it
/// is not in its place, what the connection writes is lost to everybody who opens the database; and no
/// connection is opened on another file in its place before those on the former one are closed.
[[nodiscard]] std::optional<DatabaseFile> fileOf(const Connection& connection);
/// False once that file has been removed, renamed or replaced; true where there is none.
[[nodiscard]] bool isInPlace(const Connection& connection);

}  // namespace tessaly::db
