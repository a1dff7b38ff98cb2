#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "archive/Report.h"
#include "base/FileDescriptor.h"

namespace tessaly::archive {

/// True for a name that only this server gives, and only while an object is on its way into the archive.
[[nodiscard]] bool isTemporaryName(std::string_view name) noexcept;

/// A file on its way into the archive. It is written without a name in its final folder, whose missing parts
/// are made, so that a killed server leaves nothing of it. Where the file system has no such files, and where
/// it is to replace another one, it has a temporary name; it is locked then, which tells it from one that was
/// left. The destructor takes away whatever was not kept, folders that were made for it included. Every
/// operation throws std::system_error, whose text names the root alone; the whole path is reported at level
/// Debug.
///
/// The folder lies two below the root. No symbolic link below the root is followed, and everything happens in
/// the folder that was opened: one that is put in its place meanwhile gets nothing, and the file no name.
///
/// Whoever takes a file of the archive from its name has locked it first, and a file stays locked from its
/// publish() to its keep() or its withdrawal: so no store, in this server or another, replaces or takes away
/// what another one may still take back.
class ArchiveFile {
  public:
    ArchiveFile(std::filesystem::path folder, std::string name, Report report = reportNothing);
    ~ArchiveFile();
    ArchiveFile(const ArchiveFile&) = delete;
    ArchiveFile& operator=(const ArchiveFile&) = delete;

    void write(std::span<const char> data);
    [[nodiscard]] const std::filesystem::path& folder() const noexcept { return folder_; }

    /// Bytes that were written, from anywhere in them.
    void readAt(std::size_t offset, std::span<char> target) const;
    [[nodiscard]] std::size_t size() const;
    /// The file, for whoever writes into it from elsewhere.
    [[nodiscard]] const base::FileDescriptor& descriptor() const noexcept { return file_; }
    /// The file once more, open for reading alone.
    [[nodiscard]] base::FileDescriptor openForReading() const;
    /// Writes all that was written to this one into another.
    void copyTo(ArchiveFile& other) const;

    /// A file has the name already, as it looks now.
    [[nodiscard]] bool replaces() const noexcept;
    /// Flushes the data. giveName() does it otherwise.
    void flush();
    /// Flushes the data, gives the file its final name and flushes the folder. A file that had the name
    /// before is kept until keep(); anything else, such as a folder, goes to a name of its own beside it for
    /// good, NAME.aside-1 or the next that is free. A failure takes the file away before it is thrown.
    void giveName();
    /// As giveName(), unless that was called before, and makes sure that the name is this file's and leads to
    /// it. A failure takes the file away before it is thrown.
    void publish();
    /// After publish(): makes it stay. Never fails.
    void keep() noexcept;
    /// Of one that nobody knows whether it is to stay: it stays where it was the first of its name; where it
    /// replaced another, that one is back. Never fails.
    void leave() noexcept;
    /// Takes it away, as the destructor does; where it replaced another, that one is back. Never fails.
    void withdraw() noexcept;

  private:
    enum class Stage { Writing, Published, Replaced, Done };

    [[nodiscard]] std::filesystem::path root() const { return folder_.parent_path().parent_path(); }
    [[nodiscard]] std::filesystem::path path() const {
        return folder_ / (temporary_.empty() ? name_ : temporary_);
    }
    [[noreturn]] void fail(const std::filesystem::path& path) const;
    void openFolder();
    void makeFolders();
    void makeFolder(const base::FileDescriptor& parent, const std::filesystem::path& folder) const;
    void open();
    [[nodiscard]] bool openUnnamed();
    void openNamed();
    void link();
    void moveToName();
    void setAside(const std::string& name) const;
    [[nodiscard]] bool isWhereItBelongs() const noexcept;

    Report report_;
    std::filesystem::path folder_;
    std::string name_;
    std::string temporary_;  ///< empty: it has had none
    base::FileDescriptor openedRoot_;
    base::FileDescriptor openedFolder_;
    base::FileDescriptor file_;
    base::FileDescriptor replaced_;  ///< from publish() on, where there was one
    Stage stage_ = Stage::Writing;
    bool flushed_ = false;
};

}  // namespace tessaly::archive
