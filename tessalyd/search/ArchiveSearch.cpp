#include "tessalyd/search/ArchiveSearch.h"

#include <algorithm>
#include <utility>

namespace tessaly::tessalyd {

namespace {

/// A clock that is read for every row would cost as much as some rows do.
constexpr unsigned RowsBetweenLooks = 8;
constexpr std::chrono::milliseconds AskInterval{5};

/// The first answers come at once; later pages are so large that finding where they begin does not count, but
/// not so large that what they cost the engine, which may find all of a page before it gives the first row,
/// keeps anybody waiting who wants the search to end.
constexpr std::size_t FirstPage = 32;
constexpr std::size_t PageGrowth = 4;
constexpr std::size_t LargestPage = 2048;
/// Of the values of a page, in bytes: a longer page ends earlier.
constexpr std::size_t LargestText = std::size_t{512} << 10U;
constexpr std::chrono::milliseconds LongPage{20};

std::string joined(const std::set<std::string>& values) {
    std::string text;
    for (const std::string& value : values)
        (text += text.empty() ? "" : "\\") += value;
    return text;
}

}  // namespace

ArchiveSearch::ArchiveSearch(ArchiveQuery query, SearchLimits limits, bool narrow)
    : query_(std::move(query)),
      limits_(std::move(limits)),
      plan_(planSearch(query_, narrow)),
      decidedTogether_(query_.keys.size()),
      pageSize_(FirstPage),
      values_(query_.keys.size()) {
    for (const ArchiveQuery::Combined& pair : query_.combined)
        decidedTogether_[pair.time] = true;
}

bool ArchiveSearch::next(db::StatementCache& statements) {
    for (;;) {
        if (next())
            return true;
        if (isComplete())
            return false;
        read(statements);
    }
}

bool ArchiveSearch::next() {
    if (passed_ == matches_)
        return false;
    ++passed_;
    return true;
}

std::string_view ArchiveSearch::value(std::size_t index) const {
    const std::size_t number = (passed_ - 1) * query_.keys.size() + index;
    const std::size_t begin = number == 0 ? 0 : ends_[number - 1];
    return std::string_view{text_}.substr(begin, ends_[number] - begin);
}

void ArchiveSearch::read(db::StatementCache& statements) {
    text_.clear();
    ends_.clear();
    matches_ = passed_ = 0;
    since_ = Clock::now();
    lastAsked_ = since_;
    statements.setTimeout(limits_.timeout);
    try {
        while (matches_ == 0 && !isComplete())
            readPage(statements);
        worked_ += Clock::now() - since_;
    } catch (const db::Stopped&) {
        dropPage();
        if (isLate_)
            throw SearchTimeout{};
        stopped_ = true;
    } catch (const db::Error&) {
        dropPage();
        // An engine that keeps to the limit by itself says so in words of its own.
        if (isOver(Clock::now()))
            throw SearchTimeout{};
        throw;
    } catch (...) {
        dropPage();
        throw;
    }
}

void ArchiveSearch::readPage(db::StatementCache& statements) {
    look();
    if (stopped_)
        return;
    openPage(statements);
    while (onNextEntity_ || nextRow()) {
        beginEntity();
        const bool fits = ownKeysMatch();
        if (plan_.hasParts)
            gather(fits);
        if (stopped_)
            break;
        if (fits && modalitiesMatch())
            keep();
        if (pageIsFull_)
            break;
    }
    closePage(statements);
    if (stopped_)
        return;
    if (!pageIsFull_) {
        ++pass_;
        pageEnd_.clear();
    }
    sizeNextPage();
}

void ArchiveSearch::beginEntity() {
    onNextEntity_ = false;
    gathered_ = false;
    if (++entitiesOfPage_ < pageSize_ && text_.size() < LargestText)
        return;
    pageIsFull_ = true;
    const auto& isNumber = plan_.passes[pass_].keyIsNumber;
    pageEnd_.clear();
    for (std::size_t i = 0; i < isNumber.size(); ++i) {
        const std::string column = keyColumn(i);
        pageEnd_.push_back(isNumber[i] ? db::integer(rows_->integer(column))
                                       : db::varchar(rows_->text(column)));
    }
}

void ArchiveSearch::keep() {
    for (std::size_t i = 0; i < query_.keys.size(); ++i) {
        text_ += current(i);
        ends_.push_back(static_cast<std::uint32_t>(text_.size()));
    }
    ++matches_;
}

const std::string& ArchiveSearch::current(std::size_t index) {
    return gathered_ ? values_[index] : rows_->text(query_.keys[index].key->name);
}

/// False at the end of the page, and when the search is stopped.
bool ArchiveSearch::nextRow() {
    watch();
    return !stopped_ && rows_->next();
}

void ArchiveSearch::openPage(db::StatementCache& statements) {
    const SearchPass& pass = plan_.passes[pass_];
    const SearchPass::Statement& page = pageEnd_.empty() ? pass.firstPage : pass.otherPages;
    std::vector<db::Param> values;
    for (const std::string& value : page.values)
        values.push_back(db::varchar(value));
    if (pass.startKeys < pageEnd_.size())
        values.insert(values.end(), pageEnd_.begin(),
                      pageEnd_.begin() + static_cast<std::ptrdiff_t>(pass.startKeys));
    values.insert(values.end(), pageEnd_.begin(), pageEnd_.end());
    values.push_back(db::integer(static_cast<long long>(pageSize_)));
    statementText_ = &page.text;
    statement_ = statements.take(page.text);
    statement_->bindAll(std::move(values));
    isLate_ = false;
    if (limits_.stop || limits_.timeout > std::chrono::seconds::zero())
        statement_->setStop([this] {
            isLate_ = isOver(Clock::now());
            return isLate_ || (limits_.stop && isUnwanted());
        });
    entitiesOfPage_ = 0;
    pageIsFull_ = false;
    onNextEntity_ = false;
    const auto start = Clock::now() - asking_;
    rows_.emplace(statement_->open());
    pageTook_ = Clock::now() - asking_ - start;
}

void ArchiveSearch::sizeNextPage() {
    const auto each = pageTook_ / pageSize_;
    const bool wasLong = pageTook_ >= LongPage;
    // A page that costs much because its beginning has to be found costs that again in every smaller one.
    if (wasLong && each / 2 > entityTook_)
        smallerIsNoHelp_ = true;
    pageSize_ = wasLong && !smallerIsNoHelp_ ? std::max(pageSize_ / PageGrowth, std::size_t{1})
                                             : std::min(pageSize_ * PageGrowth, LargestPage);
    entityTook_ = each;
}

/// Of a statement that may be what is broken: the cache does not get it back.
void ArchiveSearch::dropPage() {
    rows_.reset();
    statement_.reset();
}

void ArchiveSearch::closePage(db::StatementCache& statements) {
    rows_.reset();
    statement_->setStop({});
    statements.give(*statementText_, std::move(*statement_));
    statement_.reset();
}

/// Takes the rows of one entity together and goes to the first of another. One that does not match is passed
/// over.
void ArchiveSearch::gather(bool fits) {
    const std::string entityColumn = keyColumn(plan_.passes[pass_].keyIsNumber.size() - 1);
    entity_ = rows_->text(entityColumn);
    for (std::size_t i = 0; fits && i < values_.size(); ++i) {
        if (!query_.keys[i].key->isGathered(query_.level))
            values_[i] = rows_->text(query_.keys[i].key->name);
    }
    studies_.clear();
    modalities_.clear();
    series_ = 0;
    images_ = 0;
    while (!onNextEntity_) {
        if (fits)
            addPart();
        if (!nextRow())
            break;
        onNextEntity_ = rows_->text(entityColumn) != entity_;
    }
    for (std::size_t i = 0; fits && i < values_.size(); ++i) {
        if (query_.keys[i].key->isGathered(query_.level))
            values_[i] = gathered(*query_.keys[i].key);
    }
    gathered_ = true;
}

void ArchiveSearch::addPart() {
    if (plan_.partStudies && !rows_->isNull(PartStudyColumn))
        studies_.insert(rows_->text(PartStudyColumn));
    if (plan_.partSeries && !rows_->isNull(PartSeriesColumn)) {
        ++series_;
        if (const std::string& modality = rows_->text(PartModalityColumn); !modality.empty())
            modalities_.insert(modality);
        if (plan_.partImages)
            images_ += rows_->integer(PartImagesColumn);
    }
}

std::string ArchiveSearch::gathered(const QueryKey& key) const {
    if (key.matching == Matching::Modalities)
        return joined(modalities_);
    if (key.counted == Level::Study)
        return std::to_string(studies_.size());
    return std::to_string(key.counted == Level::Series ? series_ : images_);
}

/// What one row can tell.
bool ArchiveSearch::ownKeysMatch() {
    for (std::size_t i = 0; i < query_.keys.size(); ++i) {
        const ArchiveQuery::Key& key = query_.keys[i];
        if (key.match.isUniversal() || decidedTogether_[i] || key.key->matching == Matching::Modalities)
            continue;
        const auto alternative = key.match.matches(current(i));
        const std::size_t expected = plan_.passes[pass_].alternative;
        if (!alternative ||
            (i == plan_.driver && expected != SearchPass::AnyAlternative && *alternative != expected))
            return false;
    }
    return std::all_of(query_.combined.begin(), query_.combined.end(),
                       [this](const ArchiveQuery::Combined& pair) {
                           return pair.matches(current(pair.date), current(pair.time));
                       });
}

bool ArchiveSearch::modalitiesMatch() {
    return std::all_of(query_.keys.begin(), query_.keys.end(), [this](const ArchiveQuery::Key& key) {
        if (key.match.isUniversal() || key.key->matching != Matching::Modalities)
            return true;
        return std::any_of(modalities_.begin(), modalities_.end(), [&key](const std::string& modality) {
            return key.match.matches(modality).has_value();
        });
    });
}

bool ArchiveSearch::isOver(Clock::time_point now) const {
    return limits_.timeout > std::chrono::seconds::zero() && worked_ + (now - since_) >= limits_.timeout;
}

void ArchiveSearch::watch() {
    if (rowsSeen_++ % RowsBetweenLooks == 0)
        look();
}

void ArchiveSearch::look() {
    const auto now = Clock::now();
    if (isOver(now))
        throw SearchTimeout{};
    if (limits_.stop && now - lastAsked_ > AskInterval) {
        lastAsked_ = now;
        stopped_ = isUnwanted();
    }
}

/// A requester that takes its answers slowly does not use up the time that the search has.
bool ArchiveSearch::isUnwanted() {
    const auto asked = Clock::now();
    const bool unwanted = limits_.stop();
    const auto took = Clock::now() - asked;
    since_ += took;
    asking_ += took;
    return unwanted;
}

}  // namespace tessaly::tessalyd
