#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/SpoolFile.h"

namespace tessaly::maintenance {

/// Rows put aside in a temporary file, so that a long walk holds neither its result set open nor its rows in
/// memory: written first, then read back once in the same order. An open set would keep the database's log
/// from shrinking, or keep its writers out, for as long as a message box waits; and a removal would be
/// refused as soon as the running server had written something of its own. Throws std::system_error, on a
/// full temporary folder for one.
class RowSpool {
  public:
    /// `columns` is the number of cells of every row.
    explicit RowSpool(std::size_t columns) : columns_(columns) {}

    /// Adds the next cell of the row being written.
    void add(std::string_view cell) { cells_.add(cell); }
    /// Ends the writing.
    void rewind() { cells_.rewind(); }
    /// Reads the next row into `cells`; false at the end.
    [[nodiscard]] bool next(std::vector<std::string>& cells);

  private:
    std::size_t columns_;
    base::SpoolFile cells_;
};

}  // namespace tessaly::maintenance
