#pragma once

#include <span>
#include <string>
#include <vector>

#include "tessalyd/search/ArchiveQuery.h"

namespace tessaly::tessalyd {

/// A walk over a level's entities, all of them or those that one condition leaves, page by page: a driver may
/// take all rows of a statement into memory before it gives the first, and a statement that is left in the
/// middle would hold on to the tables. A statement has that one condition alone besides the joins and where
/// the page begins, and says which table comes first, so that the plan is settled whatever the engine thinks
/// of the data; what else a query asks for is decided row by row.
struct SearchPass {
    /// Values for its markers: of the condition; then, but for the first page, the keys of the entity before
    /// the page, first `startKeys` of them where these are not all, then all; then how many entities at most.
    struct Statement {
        std::string text;
        std::vector<std::string> values = {};  ///< of the condition
    };
    Statement firstPage;
    Statement otherPages;
    /// What the entities are sorted by: the first column is K0, and so on. The last tells them apart.
    std::vector<bool> keyIsNumber;
    std::size_t startKeys = 0;
    /// The alternative of the condition's key that it looks for; entities that match by an earlier one have
    /// been seen in an earlier pass. AnyAlternative: of rows that none of the others finds.
    std::size_t alternative = 0;
    static constexpr std::size_t AnyAlternative = static_cast<std::size_t>(-1);
};

struct SearchPlan {
    std::vector<SearchPass> passes;
    /// Index into the query's keys of the one that the passes search by; npos: none.
    std::size_t driver = npos;
    /// An entity has a row for each of its series, or its studies, one after the other, with these columns.
    bool hasParts = false;
    bool partStudies = false;
    bool partSeries = false;
    bool partImages = false;

    static constexpr std::size_t npos = static_cast<std::size_t>(-1);
};

// Columns of a plan's rows besides those of the keys.
[[nodiscard]] std::string keyColumn(std::size_t index);
inline constexpr std::string_view PartStudyColumn = "PartStudy";    ///< NULL where there is none
inline constexpr std::string_view PartSeriesColumn = "PartSeries";  ///< NULL where there is none
inline constexpr std::string_view PartModalityColumn = "PartModality";
inline constexpr std::string_view PartImagesColumn = "PartImages";

/// How the tables are asked. `narrow` false leaves every decision to the rows, for comparison.
[[nodiscard]] SearchPlan planSearch(const ArchiveQuery& query, bool narrow = true);

}  // namespace tessaly::tessalyd
