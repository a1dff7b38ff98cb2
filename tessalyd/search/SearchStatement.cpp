#include "tessalyd/search/SearchStatement.h"

#include <algorithm>
#include <array>

namespace tessaly::tessalyd {

namespace {

using Kind = IndexCondition::Kind;

/// Columns that the rows are sorted by.
using Order = std::vector<std::string_view>;

struct Table {
    std::string_view name;
    std::string_view belongs;  ///< to the row of the table above
    std::string_view entity;   ///< tells its rows apart
    std::string_view order;    ///< a number that they are sorted by below one row of the table above, or none
    std::string_view whole;    ///< what all of them are walked by
    bool wholeHasNulls;
};

constexpr std::array Tables{
    Table{"Patient", "", "Patient.ID", "", "Patient.NameAlphabetic", true},
    Table{"Study", "Study.IDPatient=Patient.ID", "Study.StudyInstanceUID", "", "Study.StudyDate", true},
    Table{"Series", "Series.StudyInstanceUID=Study.StudyInstanceUID", "Series.SeriesInstanceUID", "",
          "Series.SeriesInstanceUID", false},
    Table{"Image", "Image.SeriesInstanceUID=Series.SeriesInstanceUID", "Image.SOPInstanceUID",
          "Image.NumberInSeries", "Image.SOPInstanceUID", false},
};

const Table& table(Level level) {
    return Tables.at(static_cast<std::size_t>(level));
}
bool isNumber(std::string_view column) {
    return column == table(Level::Patient).entity || column == table(Level::Image).order;
}
Level above(Level level) {
    return static_cast<Level>(static_cast<int>(level) - 1);
}
Level below(Level level) {
    return static_cast<Level>(static_cast<int>(level) + 1);
}

/// Longer lists are asked for in pieces of this length; the last is filled up, so that there are two
/// statements for all lengths.
constexpr std::size_t ListLength = 100;

void append(std::string& list, std::string_view separator, std::string_view item) {
    list.append(list.empty() ? "" : separator).append(item);
}

std::string tuple(const Order& keys, std::size_t count, const char* comparison) {
    std::string columns;
    std::string markers;
    for (std::size_t i = 0; i < count; ++i) {
        append(columns, ",", keys[i]);
        append(markers, ",", "?");
    }
    return std::string{"("}
        .append(columns)
        .append(")")
        .append(comparison)
        .append("(")
        .append(markers)
        .append(")");
}

std::string condition(std::string_view column, Kind kind, std::size_t values, bool continues) {
    const std::string name{column};
    switch (kind) {
        case Kind::OneOf: {
            if (values == 1)
                return name + "=?";
            std::string list;
            for (std::size_t i = 0; i < values; ++i)
                append(list, ",", "?");
            return name + " IN (" + list + ')';
        }
        // The lower bound is behind where a later page begins, and an engine might search by it instead.
        case Kind::Between:
            return (continues ? "" : name + ">=? AND ") + name + "<=?";
        case Kind::Prefix:
            return (continues ? "" : name + ">=? AND ") + name + "<?";
        case Kind::From:
            return continues ? "" : name + ">=?";
        case Kind::Until:
            return name + "<=?";
        case Kind::Null:
            return name + " IS NULL";
    }
    return {};
}

/// The statements of one query.
class Shape {
  public:
    explicit Shape(const ArchiveQuery& query) : query_(query) {
        for (const ArchiveQuery::Key& key : query.keys) {
            top_ = std::min(top_, key.key->level);
            if (!key.key->isGathered(query.level))
                continue;
            const bool images = key.key->matching == Matching::Counter && key.key->counted == Level::Image;
            countsImages_ = countsImages_ || images;
            bottom_ = std::max(bottom_, std::min(key.key->counted, Level::Series));
        }
    }

    void describeParts(SearchPlan& plan) const {
        plan.hasParts = hasParts();
        plan.partStudies = query_.level < Level::Study && bottom_ >= Level::Study;
        plan.partSeries = query_.level < Level::Series && bottom_ >= Level::Series;
        plan.partImages = countsImages_;
    }

    /// The walk over the rows of the table at `start` that the condition leaves, and what is below them.
    [[nodiscard]] SearchPass pass(Level start, std::string_view column, Kind kind,
                                  std::vector<std::string> values, std::size_t alternative = 0) const {
        SearchPass pass{.alternative = alternative};
        const auto keys = order(start, column, kind, pass.startKeys);
        for (const std::string_view key : keys)
            pass.keyIsNumber.push_back(isNumber(key));
        const std::string first = condition(column, kind, values.size(), false);
        std::string next = condition(column, kind, values.size(), true);
        if (pass.startKeys < keys.size())
            append(next, " AND ", tuple(keys, pass.startKeys, ">="));
        append(next, " AND ", tuple(keys, keys.size(), ">"));
        pass.firstPage = {text(start, first, keys), values};
        if (kind == Kind::Between || kind == Kind::Prefix || kind == Kind::From)
            values.erase(values.begin());
        pass.otherPages = {text(start, next, keys), std::move(values)};
        return pass;
    }

  private:
    [[nodiscard]] bool hasParts() const { return bottom_ > query_.level; }

    [[nodiscard]] Order order(Level start, std::string_view column, Kind kind, std::size_t& startKeys) const {
        Order keys;
        const auto add = [&keys](Level level) {
            if (!table(level).order.empty())
                keys.push_back(table(level).order);
            keys.push_back(table(level).entity);
        };
        if (column == table(start).entity && kind != Kind::OneOf) {
            keys.push_back(table(start).entity);
        } else {
            if (kind != Kind::OneOf && kind != Kind::Null)
                keys.push_back(column);
            add(start);
        }
        startKeys = keys.size();
        for (Level level = start; level < query_.level;) {
            level = below(level);
            add(level);
        }
        return keys;
    }

    [[nodiscard]] std::string text(Level start, std::string where, const Order& keys) const {
        std::string from{table(start).name};
        for (Level level = start; level < query_.level;) {
            level = below(level);
            // This join keeps the order of the tables where an engine would otherwise choose one.
            from.append(" CROSS JOIN ").append(table(level).name);
            append(where, " AND ", table(level).belongs);
        }
        for (Level level = start; level > top_; level = above(level))
            leftJoin(from, table(above(level)).name, table(level).belongs);
        std::string sorted;
        for (const std::string_view key : keys)
            append(sorted, ", ", key);
        const std::string page = "SELECT " + columns(keys) + " FROM " + from + " WHERE " + where +
                                 " ORDER BY " + sorted + " LIMIT ?";
        return hasParts() ? withParts(page, keys.size()) : page;
    }

    static void leftJoin(std::string& from, std::string_view name, std::string_view belongs) {
        from.append(" LEFT JOIN ").append(name).append(" ON ").append(belongs);
    }

    /// Columns are read from left to right: those that decide come first, because the others are not read of
    /// rows that do not match. What the rows are sorted by is read of all where parts have to be told apart.
    [[nodiscard]] std::string columns(const Order& keys) const {
        std::string sorted;
        for (std::size_t i = 0; i < keys.size(); ++i)
            append(sorted, ", ", std::string{keys[i]} + " AS " + keyColumn(i));
        std::string list = hasParts() ? sorted : "";
        for (const bool decides : {true, false}) {
            for (const ArchiveQuery::Key& key : query_.keys) {
                if (!key.key->isGathered(query_.level) && key.match.isUniversal() != decides)
                    append(list, ", ", std::string{key.key->column} + " AS " + std::string{key.key->name});
            }
        }
        if (!hasParts())
            append(list, ", ", sorted);
        return list;
    }

    [[nodiscard]] std::string withParts(const std::string& page, std::size_t keys) const {
        std::string columns = "Page.*";
        std::string from{"("};
        from.append(page).append(") AS Page");
        const std::string entity = std::string{"Page."} + keyColumn(keys - 1);
        const bool studies = query_.level < Level::Study;
        if (studies) {
            leftJoin(from, "Study", "Study.IDPatient=" + entity);
            columns.append(", Study.StudyInstanceUID AS ").append(PartStudyColumn);
        }
        if (bottom_ >= Level::Series) {
            leftJoin(from, "Series",
                     "Series.StudyInstanceUID=" + (studies ? "Study.StudyInstanceUID" : entity));
            columns.append(", Series.SeriesInstanceUID AS ").append(PartSeriesColumn);
            columns.append(", Series.Modality AS ").append(PartModalityColumn);
        }
        if (countsImages_)
            columns
                .append(
                    ", (SELECT COUNT(*) FROM Image WHERE Image.SeriesInstanceUID=Series.SeriesInstanceUID) "
                    "AS ")
                .append(PartImagesColumn);
        std::string sorted;
        for (std::size_t i = 0; i < keys; ++i)
            append(sorted, ", ", std::string{"Page."} + keyColumn(i));
        return "SELECT " + columns + " FROM " + from + " ORDER BY " + sorted;
    }

    const ArchiveQuery& query_;
    Level top_ = query_.level;
    Level bottom_ = query_.level;
    bool countsImages_ = false;
};

/// The lower, the fewer rows are left.
int cost(const ArchiveQuery::Key& key) {
    constexpr int LeavesSome = 10;
    constexpr int LeavesMany = 20;
    constexpr int LeavesMost = 30;
    const IndexCondition& indexCondition = key.match.alternatives().front();
    // Of two UIDs the lower one leaves less.
    const int value =
        key.key->matching == Matching::Uid ? -static_cast<int>(key.key->level) : key.key->selectivity;
    switch (indexCondition.kind) {
        case Kind::OneOf:
            return value;
        case Kind::Prefix:
            return value + (indexCondition.loose ? LeavesMost : LeavesSome);
        case Kind::Between:
            return value + LeavesMany;
        case Kind::From:
        case Kind::Until:
        case Kind::Null:
            return value + LeavesMost;
    }
    return LeavesMost;
}

std::size_t chooseDriver(const ArchiveQuery& query) {
    std::size_t best = SearchPlan::npos;
    for (std::size_t i = 0; i < query.keys.size(); ++i) {
        if (query.keys[i].match.alternatives().empty())
            continue;
        if (best == SearchPlan::npos || cost(query.keys[i]) < cost(query.keys[best]))
            best = i;
    }
    return best;
}

void addPasses(SearchPlan& plan, const Shape& shape, const QueryKey& driver,
               const IndexCondition& indexCondition, std::size_t alternative) {
    const std::string_view column = driver.indexed.at(static_cast<std::size_t>(indexCondition.column));
    const auto& all = indexCondition.values;
    const std::size_t length = indexCondition.kind == Kind::OneOf && all.size() > 1 ? ListLength : all.size();
    for (std::size_t at = 0; at < all.size(); at += length) {
        const auto first = all.begin() + static_cast<std::ptrdiff_t>(at);
        std::vector<std::string> values(
            first, first + static_cast<std::ptrdiff_t>(std::min(length, all.size() - at)));
        values.resize(length, std::string{values.back()});
        plan.passes.push_back(
            shape.pass(driver.level, column, indexCondition.kind, std::move(values), alternative));
    }
}

void addWholeTable(SearchPlan& plan, const Shape& shape, Level level) {
    const Table& all = table(level);
    plan.passes.push_back(shape.pass(level, all.whole, Kind::From, {""}));
    if (all.wholeHasNulls)  // no range has these
        plan.passes.push_back(shape.pass(level, all.whole, Kind::Null, {}));
}

}  // namespace

std::string keyColumn(std::size_t index) {
    std::string name{"K"};
    return name += std::to_string(index);
}

SearchPlan planSearch(const ArchiveQuery& query, bool narrow) {
    const Shape shape{query};
    SearchPlan plan;
    shape.describeParts(plan);
    if (narrow)
        plan.driver = chooseDriver(query);
    if (plan.driver == SearchPlan::npos) {
        addWholeTable(plan, shape, query.level);
        return plan;
    }
    const ArchiveQuery::Key& driver = query.keys[plan.driver];
    const auto& alternatives = driver.match.alternatives();
    for (std::size_t i = 0; i < alternatives.size(); ++i)
        addPasses(plan, shape, *driver.key, alternatives[i], i);
    if (query.hasOlderRows && driver.key->matching == Matching::Name)
        plan.passes.push_back(shape.pass(driver.key->level, driver.key->indexed.front(), Kind::Null, {},
                                         SearchPass::AnyAlternative));
    return plan;
}

}  // namespace tessaly::tessalyd
