#pragma once

#include <optional>
#include <set>
#include <string>
#include <utility>

#include "base/FileDescriptor.h"
#include "base/SpoolFile.h"
#include "tessalyd/search/ArchiveSearch.h"

namespace tessaly::tessalyd {

/// One object of the archive, as a retrieval sends it.
struct StoredInstance {
    std::string sopClassUid;  ///< empty where neither the tables nor the file tell it
    std::string sopInstanceUid;
    std::string transferSyntaxUid;  ///< that of the file; empty as the class
    std::string file;               ///< where the file system has it
    std::string root;               ///< the beginning of `file`, up to the study's folder
};

/// Opens the file for reading; a symbolic link below the root is not followed. Throws std::runtime_error,
/// whose text has no path.
[[nodiscard]] base::FileDescriptor openStored(const StoredInstance& instance);

/// The beginning of a study's native path that StoredInstance::root has: the folder that the study's lies in.
[[nodiscard]] std::string rootOf(std::string study);

/// The instances that a retrieval is to send, in the order of sending: study by study, series by series, by
/// number. Made at once, so that their number is known and neither a statement nor a snapshot of the tables
/// is held while they are sent, which may take hours; beyond some megabytes they wait in a file without a
/// name.
class InstanceList {
  public:
    /// Reads the instances below the entities that the query, one of readRetrieval(), asks for. Throws
    /// db::Error and SearchTimeout; std::system_error when there is no room.
    InstanceList(db::StatementCache& statements, ArchiveQuery query, SearchLimits limits = {});

    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    /// True when the reading was stopped: the list is not complete then.
    [[nodiscard]] bool wasStopped() const noexcept { return stopped_; }

    /// SOP class and transfer syntax, for what is to be proposed: each pair once. Either may be empty.
    using Kinds = std::set<std::pair<std::string, std::string>>;
    [[nodiscard]] const Kinds& kinds() const noexcept { return kinds_; }

    /// The next one; nothing behind the last.
    [[nodiscard]] std::optional<StoredInstance> next();
    /// Has next() begin with the first again.
    void restart() { texts_.rewind(); }

  private:
    base::SpoolFile texts_{std::size_t{4} << 20U};
    std::size_t size_ = 0;
    bool stopped_ = false;
    Kinds kinds_;
};

}  // namespace tessaly::tessalyd
