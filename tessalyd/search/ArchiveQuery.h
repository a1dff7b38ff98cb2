#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "tessalyd/search/KeyMatch.h"
#include "tessalyd/search/QueryKeys.h"

namespace tessaly::tessalyd {

/// A question to the archive's tables: which entities of a level, and what of them. Every key is of this
/// level or one above.
struct ArchiveQuery {
    struct Key {
        const QueryKey* key;
        KeyMatch match = {};
    };
    /// Two keys that are decided together: indices into keys. The second is not compared by itself then.
    struct Combined {
        std::size_t date;
        std::size_t time;
        std::function<bool(std::string_view date, std::string_view time)> matches;
    };

    Level level = Level::Study;
    std::vector<Key> keys;
    std::vector<Combined> combined = {};
    /// Patients may be there whose names are not folded yet: they are compared as well.
    bool hasOlderRows = false;
};

}  // namespace tessaly::tessalyd
