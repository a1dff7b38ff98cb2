#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "tessalyd/FileDescriptor.h"

namespace tessaly::tessalyd {

/// True for a name that only this server gives, and only while an object is being written.
[[nodiscard]] bool isTemporaryName(std::string_view name) noexcept;

/// A file on its way into the archive. It is written under a temporary name in its final folder, whose
/// missing parts are made; it is locked meanwhile, which tells it from one that a killed server left. The
/// destructor takes away whatever was not kept, folders that were made for it included. Every operation
/// throws std::system_error.
class ArchiveFile {
  public:
    ArchiveFile(std::filesystem::path folder, std::string name);
    ~ArchiveFile();
    ArchiveFile(const ArchiveFile&) = delete;
    ArchiveFile& operator=(const ArchiveFile&) = delete;

    void write(std::span<const char> data);
    /// The temporary file, for reading back.
    [[nodiscard]] const std::filesystem::path& temporaryPath() const noexcept { return temporary_; }
    [[nodiscard]] const std::filesystem::path& folder() const noexcept { return folder_; }

    /// Writes all that was written to this one into another.
    void copyTo(ArchiveFile& other) const;

    /// Flushes the data, gives the file its final name and flushes the folder. A file that had the name
    /// before is set aside until keep(). A failure takes the file away before it is thrown.
    void publish();
    /// After publish(): makes it stay. Never fails.
    void keep() noexcept;
    /// Of one that nobody knows whether it is to stay: it stays where it was the first of its name; where it
    /// replaced another, that one is back. Never fails.
    void leave() noexcept;

  private:
    enum class Stage { Writing, Published, Replaced, Done };

    void open();
    void makeFolders();
    void giveName();
    [[nodiscard]] bool isMine(const std::filesystem::path& path) const noexcept;
    void withdraw() noexcept;

    std::filesystem::path folder_;
    std::string name_;
    std::filesystem::path temporary_;
    FileDescriptor file_;
    FileDescriptor replaced_;  ///< from publish() on, where there was one
    Stage stage_ = Stage::Writing;
};

}  // namespace tessaly::tessalyd
