#pragma once

#include <filesystem>
#include <utility>

#include "maintenance/Pass.h"

namespace tessaly::maintenance {

/// The file that a compaction of the database writes: the database's path with its last ".mdb" and all that
/// follows it replaced by "2.mdb". Throws std::runtime_error where the path has no ".mdb" in these letters.
[[nodiscard]] std::filesystem::path temporaryPathOf(const std::filesystem::path& database);

/// Replaces a database file by a compacted copy of itself, in the same journal mode, with the same owner,
/// mode and access list; where `database` is a symbolic link, the file that it leads to. A user who may write
/// the file but not give another one its owner has the copy written into the file itself, by one transaction
/// of the engine. Throws std::exception with the engine's or the system's description, and the database is
/// then what it was: when the file is no database, when any process has it open, when it has a second name (a
/// hard link), when there is no room, no right, no sound copy. Killed or powered off at any instant it leaves
/// the old database or the new one, whole, to whoever opens it next.
///
/// A file that lies at the temporary path is deleted, unless somebody has it open or it is `dataSource`, the
/// file that the program itself works on (empty: none): then nothing is done.
///
/// It breathes now and then while the engine works, so that a window can repaint, and does not ask whether to
/// stop; its progress must not throw. The connection is not used, and closed: this process must not have the
/// file open.
class FileCompaction : public Pass {
  public:
    explicit FileCompaction(std::filesystem::path database, std::filesystem::path dataSource = {})
        : database_(std::move(database)), dataSource_(std::move(dataSource)) {}

    void run(const db::Connection& connection, Progress& progress) override;

  private:
    std::filesystem::path database_;
    std::filesystem::path dataSource_;
};

}  // namespace tessaly::maintenance
