#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "db/StatementCache.h"
#include "tessalyd/search/ArchiveQuery.h"
#include "tessalyd/search/SearchStatement.h"

namespace tessaly::tessalyd {

/// A search took longer than it may.
class SearchTimeout : public std::runtime_error {
  public:
    SearchTimeout() : std::runtime_error("The query took longer than its time-out") {}
};

struct SearchLimits {
    std::chrono::seconds timeout{
        0};  ///< of the search's own work, not of what its user does between; zero: none
    /// Asked now and then, some hundred times a second, while no answer comes: true ends the search. It may
    /// take its time, which is not the search's. While the engine works on a statement it may be asked in
    /// another thread; that of the search waits then.
    std::function<bool()> stop = {};
};

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
    [[nodiscard]] bool isComplete() const noexcept { return stopped_ || pass_ >= plan_.passes.size(); }
    /// Goes to the next match of those that have been read. False when there is none.
    [[nodiscard]] bool next();
    /// The same, reading more where there may be more.
    [[nodiscard]] bool next(db::StatementCache& statements);
    [[nodiscard]] bool wasStopped() const noexcept { return stopped_; }

    [[nodiscard]] const ArchiveQuery& query() const noexcept { return query_; }
    /// The current match's value of the query's key at `index`: UTF-8, empty where there is none. Holds until
    /// next().
    [[nodiscard]] std::string_view value(std::size_t index) const;

  private:
    void readPage(db::StatementCache& statements);
    bool nextRow();
    void openPage(db::StatementCache& statements);
    void sizeNextPage();
    void closePage(db::StatementCache& statements);
    void dropPage();
    void beginEntity();
    void keep();
    void gather(bool fits);
    void addPart();
    [[nodiscard]] std::string gathered(const QueryKey& key) const;
    [[nodiscard]] const std::string& current(std::size_t index);
    bool ownKeysMatch();
    bool modalitiesMatch();
    void watch();
    void look();
    [[nodiscard]] bool isUnwanted();

    using Clock = std::chrono::steady_clock;
    [[nodiscard]] bool isOver(Clock::time_point now) const;

    ArchiveQuery query_;
    SearchLimits limits_;
    SearchPlan plan_;
    std::vector<bool> decidedTogether_;  // by key
    std::size_t pass_ = 0;
    std::size_t pageSize_;
    std::chrono::steady_clock::duration pageTook_{0};
    std::chrono::steady_clock::duration entityTook_ =
        std::chrono::steady_clock::duration::max();  // in the page before
    bool smallerIsNoHelp_ = false;
    std::size_t entitiesOfPage_ = 0;
    bool pageIsFull_ = false;         // the current entity is the last of its page, and more may follow
    std::vector<db::Param> pageEnd_;  // the keys of the last entity of the last full page
    std::optional<db::Query> statement_;
    const std::string* statementText_ = nullptr;
    std::optional<db::ResultSet> rows_;
    bool gathered_ = false;      // the current entity is in values_, and no longer in the row
    bool onNextEntity_ = false;  // the current row is of the next entity already

    std::vector<std::string> values_;  // of the entity, where it was gathered from several rows
    std::string entity_;
    std::set<std::string> studies_;  // its parts
    long long series_ = 0;
    long long images_ = 0;
    std::set<std::string> modalities_;

    // The matches that have been read: their values, one behind the other, and where each ends.
    std::string text_;
    std::vector<std::uint32_t> ends_;
    std::size_t matches_ = 0;
    std::size_t passed_ = 0;  // of these

    Clock::duration worked_{0};
    Clock::time_point since_;  // as if nobody had been asked in between
    Clock::duration asking_{0};
    Clock::time_point lastAsked_;
    unsigned rowsSeen_ = 0;
    bool stopped_ = false;
    bool isLate_ = false;  // a statement was ended at the time-out
};

}  // namespace tessaly::tessalyd
