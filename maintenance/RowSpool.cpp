#include "maintenance/RowSpool.h"

#include <algorithm>

namespace tessaly::maintenance {

bool RowSpool::next(std::vector<std::string>& cells) {
    cells.resize(columns_);
    return std::all_of(cells.begin(), cells.end(), [this](std::string& cell) { return cells_.next(cell); });
}

}  // namespace tessaly::maintenance
