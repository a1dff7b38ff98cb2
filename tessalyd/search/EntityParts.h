#pragma once

#include <set>
#include <string>

#include "db/ResultSet.h"
#include "tessalyd/search/QueryKeys.h"
#include "tessalyd/search/SearchStatement.h"

namespace tessaly::tessalyd {

/// What an entity's rows, one for each of its parts, say of it together: how many studies, series and images
/// it has, and their modalities.
class EntityParts {
  public:
    void clear() noexcept;
    void add(db::ResultSet& row, const SearchPlan& plan);

    /// Of a key that is gathered from the parts.
    [[nodiscard]] std::string value(const QueryKey& key) const;
    [[nodiscard]] const std::set<std::string>& modalities() const noexcept { return modalities_; }

  private:
    std::set<std::string> studies_;
    long long series_ = 0;
    long long images_ = 0;
    std::set<std::string> modalities_;
};

}  // namespace tessaly::tessalyd
