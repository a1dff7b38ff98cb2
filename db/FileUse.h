#pragma once

#include <optional>
#include <string>

#include "db/DatabaseFile.h"

namespace tessaly::db::detail {

/// A session's use of a file database. The engine finds the write-ahead log by the database's path: when
/// another file takes the database's place, the log that lies there is the former one's, and would ruin the
/// new one. So no session is opened on another file before those of this process on the former one are
/// closed, and a log that is known to be the former one's gets another name first: PATH-wal.former-1 or the
/// next that is free; it gets its own back with its file. (The engine itself leaves the log alone when a
/// session on a file that has lost its place is closed.) Thread-safe.
class FileUse {
  public:
    /// Before a session is opened by this connect string. Throws Error where the database's place has been
    /// taken by another file while sessions are at the former one, or its log cannot be renamed.
    static void requireFree(const std::string& connectString);

    /// After it was opened, on the file at `path`. Throws as requireFree(); the session is to be left open
    /// then.
    FileUse(const std::string& connectString, const std::string& path);
    ~FileUse();
    FileUse(const FileUse&) = delete;
    FileUse& operator=(const FileUse&) = delete;

    /// To be called when the session has read from the database: from then on its log is there.
    void noteLog();

    [[nodiscard]] const std::optional<DatabaseFile>& file() const noexcept { return file_; }

  private:
    std::string path_;
    std::optional<DatabaseFile> file_;
};

}  // namespace tessaly::db::detail
