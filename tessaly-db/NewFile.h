#pragma once

#include <filesystem>

#include "db/dialects/Dialect.h"

namespace tessaly::tool {

/// A database file in the making. It grows as a temporary file beside its place, for its owner's eyes alone,
/// and is put in place whole or not at all.
class NewFile {
  public:
    /// Makes the folder, where it is missing, and the temporary file, empty. Throws std::runtime_error when
    /// something stands in the file's place, and std::system_error when the folder does not let it.
    NewFile(std::filesystem::path place, const db::Dialect& dialect);
    /// Removes the temporary file unless it was put in place.
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// Throws std::runtime_error when there is a file, or a log that the engine would take for its own.
    static void requireFree(const std::filesystem::path& place, const db::Dialect& dialect);

    [[nodiscard]] const std::filesystem::path& temporary() const noexcept { return temporary_; }

    /// Writes it to the disk and gives it its name; never replaces a file. The database must be closed.
    void putInPlace();

  private:
    const db::Dialect& dialect_;
    std::filesystem::path place_;
    std::filesystem::path temporary_;
};

}  // namespace tessaly::tool
