#include "tessalyd/search/ArchiveSearch.h"

#include <algorithm>
#include <utility>

namespace tessaly::tessalyd {

namespace {

/// Of the values of a page, in bytes: a longer page ends earlier.
constexpr std::size_t LargestText = std::size_t{512} << 10U;

}  // namespace

ArchiveSearch::ArchiveSearch(ArchiveQuery query, SearchLimits limits, bool narrow)
    : query_(std::move(query)),
      plan_(planSearch(query_, narrow)),
      decidedTogether_(query_.keys.size()),
      clock_(std::move(limits)),
      matches_(query_.keys.size()),
      values_(query_.keys.size()) {
    for (const ArchiveQuery::Combined& pair : query_.combined)
        decidedTogether_[pair.time] = true;
}

void ArchiveSearch::read(db::StatementCache& statements) {
    matches_.clear();
    clock_.start();
    statements.setTimeout(clock_.timeout());
    try {
        while (matches_.isEmpty() && !isComplete())
            readPage(statements);
        clock_.pause();
    } catch (const db::Stopped&) {
        dropPage();
        if (clock_.isLate())
            throw SearchTimeout{};
        clock_.setStopped();
    } catch (const db::Error&) {
        dropPage();
        // An engine that keeps to the limit by itself says so in words of its own.
        if (clock_.mayHaveTimedOut())
            throw SearchTimeout{};
        throw;
    } catch (...) {
        dropPage();
        throw;
    }
}

void ArchiveSearch::readPage(db::StatementCache& statements) {
    if (clock_.look())
        return;
    openPage(statements);
    while (onNextEntity_ || nextRow()) {
        beginEntity();
        const bool fits = ownKeysMatch();
        if (plan_.hasParts)
            gather(fits);
        if (wasStopped())
            break;
        if (fits && modalitiesMatch())
            keep();
        if (pageIsFull_)
            break;
    }
    closePage(statements);
    if (wasStopped())
        return;
    if (!pageIsFull_) {
        ++pass_;
        pageEnd_.clear();
    }
    pageSize_.adapt(pageTook_);
}

void ArchiveSearch::beginEntity() {
    onNextEntity_ = false;
    gathered_ = false;
    if (++entitiesOfPage_ < pageSize_.entities() && matches_.bytes() < LargestText)
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
    for (std::size_t i = 0; i < query_.keys.size(); ++i)
        matches_.add(current(i));
    matches_.endMatch();
}

const std::string& ArchiveSearch::current(std::size_t index) {
    return gathered_ ? values_[index] : rows_->text(query_.keys[index].key->name);
}

/// False at the end of the page, and when the search is stopped.
bool ArchiveSearch::nextRow() {
    return !clock_.watch() && rows_->next();
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
    values.push_back(db::integer(static_cast<long long>(pageSize_.entities())));
    statementText_ = &page.text;
    statement_ = statements.take(page.text);
    statement_->bindAll(std::move(values));
    clock_.expectStatement();
    if (clock_.hasLimits())
        statement_->setStop([this] { return clock_.endsStatement(); });
    entitiesOfPage_ = 0;
    pageIsFull_ = false;
    onNextEntity_ = false;
    const auto start = clock_.ownTime();
    rows_.emplace(statement_->open());
    pageTook_ = clock_.ownTime() - start;
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
    const std::string entity = rows_->text(entityColumn);
    for (std::size_t i = 0; fits && i < values_.size(); ++i) {
        if (!query_.keys[i].key->isGathered(query_.level))
            values_[i] = rows_->text(query_.keys[i].key->name);
    }
    parts_.clear();
    while (!onNextEntity_) {
        if (fits)
            parts_.add(*rows_, plan_);
        if (!nextRow())
            break;
        onNextEntity_ = rows_->text(entityColumn) != entity;
    }
    for (std::size_t i = 0; fits && i < values_.size(); ++i) {
        if (query_.keys[i].key->isGathered(query_.level))
            values_[i] = parts_.value(*query_.keys[i].key);
    }
    gathered_ = true;
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
        const auto& modalities = parts_.modalities();
        return std::any_of(modalities.begin(), modalities.end(), [&key](const std::string& modality) {
            return key.match.matches(modality).has_value();
        });
    });
}

}  // namespace tessaly::tessalyd
