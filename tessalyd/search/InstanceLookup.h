#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "db/Query.h"
#include "tessalyd/search/InstanceList.h"

namespace tessaly::tessalyd {

/// An object of the archive, as the tables have it now.
struct LocatedInstance {
    StoredInstance stored;
    std::string studyInstanceUid;
    std::string seriesInstanceUid;
    std::optional<std::uint64_t> fileSize;  ///< as it was stored; nothing in older rows
};

/// Finds objects one by one, by a statement that is prepared once. Belongs to the connection's thread.
class InstanceLookup {
  public:
    explicit InstanceLookup(const db::Connection& connection);

    /// Throws db::Error.
    [[nodiscard]] std::optional<LocatedInstance> find(const std::string& sopInstanceUid);

  private:
    db::Query query_;
};

}  // namespace tessaly::tessalyd
