#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "db/Query.h"
#include "dicom/data/ObjectHeader.h"

namespace tessaly::schema {

/// A column that repeats what an object says of itself; keys and places are none.
struct HeaderColumn {
    std::string_view name;
    bool isText;
    db::Param (*value)(const dicom::ObjectHeader&);
};

[[nodiscard]] std::span<const HeaderColumn> patientColumns();
[[nodiscard]] std::span<const HeaderColumn> studyColumns();
[[nodiscard]] std::span<const HeaderColumn> seriesColumns();
[[nodiscard]] std::span<const HeaderColumn> imageColumns();

/// "A, B" of the columns' names, and "A=?, B=?".
[[nodiscard]] std::string namesOf(std::span<const HeaderColumn> columns);
[[nodiscard]] std::string assignmentsOf(std::span<const HeaderColumn> columns);
/// "A=COALESCE(A,?), ...": for a row that lacks some of them, which leaves the others as they are.
[[nodiscard]] std::string fillingsOf(std::span<const HeaderColumn> columns);
/// "A IS NULL OR ...": whether a row lacks any. A text that was read is not NULL, be it empty; a number may
/// be. `table` goes before the names.
[[nodiscard]] std::string lackOf(std::span<const HeaderColumn> columns, std::string_view table);
/// "?,?" for so many values.
[[nodiscard]] std::string markers(std::size_t count);

/// The columns' values, then `more`.
[[nodiscard]] std::vector<db::Param> valuesOf(std::span<const HeaderColumn> columns,
                                              const dicom::ObjectHeader& header,
                                              std::initializer_list<db::Param> more);

/// True when the current row has another value in one of the columns; nothing and an empty text are the same.
[[nodiscard]] bool differs(db::ResultSet& row, std::span<const HeaderColumn> columns,
                           const dicom::ObjectHeader& header);

}  // namespace tessaly::schema
