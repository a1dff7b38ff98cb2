#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "db/StatementCache.h"
#include "tessalyd/search/ArchiveQuery.h"
#include "tessalyd/search/EntityParts.h"
#include "tessalyd/search/MatchBuffer.h"
#include "tessalyd/search/SearchClock.h"
#include "tessalyd/search/SearchPageSize.h"
#include "tessalyd/search/SearchStatement.h"

namespace tessaly::tessalyd {

/// The entities that match a query, one at a time; memory does not grow with their number. They are read page
/// by page: no more than some thousands, or half a megabyte, are waiting, fewer where they cost more time.
/// Between two pages the tables are free, and the next may be read over another connection. What is stored
/// meanwhile may or may not be among them.
class ArchiveSearch {
  public:
    explicit ArchiveSearch(ArchiveQuery query, SearchLimits limits = {}, bool narrow = true);
    ArchiveSearch(const ArchiveSearch&) = delete;
    ArchiveSearch& operator=(const ArchiveSearch&) = delete;

    /// Reads on until there are matches at the end of a page, or the search is over or stopped. Those that
    /// were read before are gone. Keeps nothing of the statements. Throws db::Error and SearchTimeout.
    void read(db::StatementCache& statements);
    /// Nothing is left to be read.
    [[nodiscard]] bool isComplete() const noexcept { return wasStopped() || pass_ >= plan_.passes.size(); }
    /// Goes to the next match of those that have been read. False when there is none.
    [[nodiscard]] bool next() noexcept { return matches_.next(); }
    [[nodiscard]] bool wasStopped() const noexcept { return clock_.wasStopped(); }

    [[nodiscard]] const ArchiveQuery& query() const noexcept { return query_; }
    /// The current match's value of the query's key at `index`: UTF-8, empty where there is none. Holds until
    /// next().
    [[nodiscard]] std::string_view value(std::size_t index) const { return matches_.value(index); }

  private:
    void readPage(db::StatementCache& statements);
    bool nextRow();
    void openPage(db::StatementCache& statements);
    void closePage(db::StatementCache& statements);
    void dropPage();
    void beginEntity();
    void keep();
    void gather(bool fits);
    [[nodiscard]] const std::string& current(std::size_t index);
    bool ownKeysMatch();
    bool modalitiesMatch();

    ArchiveQuery query_;
    SearchPlan plan_;
    std::vector<bool> decidedTogether_;  // by key
    SearchClock clock_;
    MatchBuffer matches_;

    // The page that is being read, and where the next begins.
    std::size_t pass_ = 0;
    SearchPageSize pageSize_;
    std::size_t entitiesOfPage_ = 0;
    bool pageIsFull_ = false;         // the current entity is the last of its page, and more may follow
    std::vector<db::Param> pageEnd_;  // the keys of the last entity of the last full page
    std::optional<db::Query> statement_;
    const std::string* statementText_ = nullptr;
    std::optional<db::ResultSet> rows_;
    SearchClock::Clock::duration pageTook_{0};

    // The current entity.
    bool gathered_ = false;            // it is in values_, and no longer in the row
    bool onNextEntity_ = false;        // the current row is of the next one already
    std::vector<std::string> values_;  // where it was gathered from several rows
    EntityParts parts_;
};

/// Goes to the next of what a search has, or of what comes from one, and reads more where there may be more.
/// Returns false at the end.
template <class Search>
[[nodiscard]] bool readNext(Search&& search, db::StatementCache& statements) {
    for (;;) {
        if (search.next())
            return true;
        if (search.isComplete())
            return false;
        search.read(statements);
    }
}

}  // namespace tessaly::tessalyd
