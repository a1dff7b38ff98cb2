#include "tessalyd/search/KeyMatch.h"

#include <QList>
#include <QString>
#include <algorithm>
#include <map>
#include <set>

#include "base/Number.h"
#include "dicom/data/DateTimeRange.h"
#include "dicom/data/NameFolding.h"
#include "dicom/data/Padding.h"

namespace tessaly::tessalyd {

namespace {

using dicom::dateRange;
using dicom::foldedGroups;
using dicom::MomentRange;
using dicom::storedDate;
using dicom::storedTime;
using dicom::timeRange;
using dicom::withoutBlanks;
using Found = std::optional<std::size_t>;
constexpr std::string_view Wildcards = "*?";

bool hasWildcard(std::string_view text) {
    return text.find_first_of(Wildcards) != std::string_view::npos;
}

std::size_t characterLength(std::string_view text) {
    std::size_t length = 1;
    while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U)
        ++length;
    return length;
}

Found foundIf(bool matches) {
    return matches ? Found{0} : std::nullopt;
}

/// Fewer characters than these leave more of an archive's names than a range of dates does.
constexpr std::size_t TellingPrefix = 3;

/// The index condition of a pattern; nothing when it begins with a wildcard.
std::optional<IndexCondition> narrowingOf(const std::string& pattern, int column) {
    if (!hasWildcard(pattern))
        return IndexCondition{.kind = IndexCondition::Kind::OneOf, .values = {pattern}, .column = column};
    const std::string_view literal = withoutBlanks({pattern.data(), pattern.find_first_of(Wildcards)});
    // A name that ends before the wildcard is stored without the delimiters that would follow. It sorts
    // before the names that have them, and there are no letters between.
    const std::string_view prefix = withoutBlanks(literal.substr(0, literal.find_last_not_of('^') + 1));
    if (prefix.empty())
        return std::nullopt;
    std::string behind = behindPrefix(literal);
    const bool loose = prefix.size() < TellingPrefix;
    if (behind.empty())
        return IndexCondition{IndexCondition::Kind::From, {std::string{prefix}}, column, loose};
    return IndexCondition{
        IndexCondition::Kind::Prefix, {std::string{prefix}, std::move(behind)}, column, loose};
}

bool matchesGroup(const std::string& pattern, const std::string& group) {
    if (!hasWildcard(pattern))
        return pattern == group;
    if (matchesPattern(pattern, group))
        return true;
    const auto delimiters = [](const std::string& text) { return std::count(text.begin(), text.end(), '^'); };
    const auto missing = delimiters(pattern) - delimiters(group);
    return missing > 0 &&
           matchesPattern(pattern, group + std::string(static_cast<std::size_t>(missing), '^'));
}

bool matchesText(const std::string& pattern, std::string_view stored) {
    return hasWildcard(pattern) ? matchesPattern(pattern, stored) : pattern == stored;
}

/// Codes of a list, some of them with wildcards. There are few different codes in an archive: what has been
/// decided of one is remembered, so that a row does not cost a comparison with each of the list.
class CodeList {
  public:
    explicit CodeList(std::vector<std::string> codes) {
        for (std::string& code : codes)
            (hasWildcard(code) ? patterns_ : plain_).insert(std::move(code));
    }

    [[nodiscard]] bool covers(std::string_view stored) const {
        if (plain_.contains(stored))
            return true;
        if (patterns_.empty())
            return false;
        if (const auto known = decided_.find(stored); known != decided_.end())
            return known->second;
        const bool isCovered =
            std::any_of(patterns_.begin(), patterns_.end(),
                        [stored](const std::string& pattern) { return matchesPattern(pattern, stored); });
        if (decided_.size() < MostDecided)
            decided_.emplace(stored, isCovered);
        return isCovered;
    }

  private:
    static constexpr std::size_t MostDecided = 1000;
    std::set<std::string, std::less<>> plain_;
    std::set<std::string, std::less<>> patterns_;
    mutable std::map<std::string, bool, std::less<>> decided_;  // by the patterns
};

}  // namespace

/// Makes the decision and the index condition of each kind of matching.
class KeyMatchMaker {
  public:
    explicit KeyMatchMaker(KeyMatch& match) : match_(match) {}

    void text(std::string_view asked) {
        narrow(tessalyd::narrowingOf(std::string{asked}, 0));
        match_.decide_ = [pattern = std::string{asked}](std::string_view stored) {
            return foundIf(matchesText(pattern, withoutBlanks(stored)));
        };
    }

    void uids(std::vector<std::string> uids) {
        if (uids.empty())
            return;
        std::sort(uids.begin(), uids.end());
        uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
        narrow(IndexCondition{.kind = IndexCondition::Kind::OneOf, .values = uids});
        match_.decide_ = [uids = std::move(uids)](std::string_view stored) {
            return foundIf(std::binary_search(uids.begin(), uids.end(), withoutBlanks(stored)));
        };
    }

    void codes(std::vector<std::string> codes) {
        if (codes.empty() || std::find(codes.begin(), codes.end(), "*") != codes.end())
            return;
        match_.decide_ = [codes = CodeList{std::move(codes)}](std::string_view stored) {
            return foundIf(codes.covers(withoutBlanks(stored)));
        };
    }

    void name(std::string_view asked) {
        const auto groups = foldedGroups(asked);
        if (asked.find('=') == std::string_view::npos)
            anyGroup(groups.front());
        else
            everyGroup(groups);
    }

    void date(std::string_view asked) {
        auto range = dateRange(asked);
        if (!range)
            return literally(asked);
        narrow(narrowingOf(*range));
        match_.decide_ = [range = std::move(*range)](std::string_view stored) {
            const auto moment = storedDate(stored);
            return foundIf(moment && range.covers(*moment));
        };
    }

    void time(std::string_view asked) {
        auto range = timeRange(asked);
        if (!range)
            return literally(asked);
        match_.decide_ = [range = std::move(*range)](std::string_view stored) {
            const auto moment = storedTime(stored);
            return foundIf(moment && range.covers(*moment));
        };
    }

    void number(std::string_view asked) {
        const auto wanted = base::wholeNumber(asked.substr(asked.starts_with('+') ? 1 : 0));
        if (!wanted)
            return literally(asked);
        match_.decide_ = [wanted](std::string_view stored) {
            stored = withoutBlanks(stored);
            return foundIf(base::wholeNumber(stored.substr(stored.starts_with('+') ? 1 : 0)) == wanted);
        };
    }

    /// For what cannot be understood, and is then found only where it is stored.
    void literally(std::string_view asked) {
        narrow(IndexCondition{.kind = IndexCondition::Kind::OneOf, .values = {std::string{asked}}});
        match_.decide_ = [wanted = std::string{asked}](std::string_view stored) {
            return foundIf(withoutBlanks(stored) == wanted);
        };
    }

  private:
    void narrow(std::optional<IndexCondition> indexCondition) {
        if (indexCondition)
            match_.alternatives_.push_back(std::move(*indexCondition));
    }

    static IndexCondition narrowingOf(const MomentRange& range) {
        if (range.first == range.last)
            return {IndexCondition::Kind::OneOf, {range.first}};
        if (range.last.empty())
            return {IndexCondition::Kind::From, {range.first}};
        if (range.first.empty())
            return {IndexCondition::Kind::Until, {range.last}};
        return {IndexCondition::Kind::Between, {range.first, range.last}};
    }

    /// A name that is not divided is looked for in all groups of those that are stored.
    void anyGroup(const std::string& pattern) {
        if (pattern.empty() || pattern == "*")
            return;
        for (int group = 0; group < 3; ++group)
            narrow(tessalyd::narrowingOf(pattern, group));
        match_.decide_ = [pattern](std::string_view stored) -> Found {
            const auto groups = foldedGroups(stored);
            for (std::size_t i = 0; i < groups.size(); ++i) {
                if (i > 0 && groups[i].empty())
                    continue;
                if (matchesGroup(pattern, groups[i]))
                    return i;
            }
            return std::nullopt;
        };
    }

    void everyGroup(const std::array<std::string, 3>& patterns) {
        const auto asks = [](const std::string& pattern) { return !pattern.empty() && pattern != "*"; };
        if (std::none_of(patterns.begin(), patterns.end(), asks))
            return;
        for (int group = 0; group < 3 && match_.alternatives_.empty(); ++group) {
            const std::string& pattern = patterns[static_cast<std::size_t>(group)];
            if (asks(pattern))
                narrow(tessalyd::narrowingOf(pattern, group));
        }
        match_.decide_ = [patterns, asks](std::string_view stored) {
            const auto groups = foldedGroups(stored);
            for (std::size_t i = 0; i < groups.size(); ++i) {
                if (asks(patterns[i]) && !matchesGroup(patterns[i], groups[i]))
                    return Found{};
            }
            return Found{0};
        };
    }

    KeyMatch& match_;
};

KeyMatch::KeyMatch(const QueryKey& key, std::string_view asked) {
    asked = withoutBlanks(asked);
    if (asked.empty() || asked == "*")
        return;
    KeyMatchMaker maker{*this};
    switch (key.matching) {
        case Matching::Uid:
            maker.uids(listed(asked));
            break;
        case Matching::Text:
            maker.text(asked);
            break;
        case Matching::Code:
        case Matching::Modalities:
            maker.codes(listed(asked));
            break;
        case Matching::Name:
            maker.name(asked);
            break;
        case Matching::Date:
            maker.date(asked);
            break;
        case Matching::Time:
            maker.time(asked);
            break;
        case Matching::Number:
            maker.number(asked);
            break;
        case Matching::Counter:
            break;
    }
    if (key.indexed.front().empty())
        alternatives_.clear();
}

std::function<bool(std::string_view, std::string_view)> combinedMatch(std::string_view date,
                                                                      std::string_view time) {
    const auto dates = dateRange(date);
    const auto times = timeRange(time);
    if (!dates || !times || !(dates->isRange || times->isRange))
        return {};
    // A time only says something about an end that has a date.
    MomentRange range;
    if (!dates->first.empty())
        range.first = dates->first + times->first;
    if (!dates->last.empty())
        range.last = dates->last + (times->last.empty() ? "999999999999" : times->last);
    return [range](std::string_view storedDay, std::string_view storedMoment) {
        const auto day = storedDate(storedDay);
        return day && range.covers(*day + storedTime(storedMoment).value_or("000000000000"));
    };
}

std::vector<std::string> listed(std::string_view text) {
    std::vector<std::string> values;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\\'), text.size());
        if (const auto value = withoutBlanks(text.substr(0, length)); !value.empty())
            values.emplace_back(value);
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return values;
}

bool matchesPattern(std::string_view pattern, std::string_view text) noexcept {
    // Where a part does not fit, only the last `*` before it need take one character more.
    std::string_view retryPattern;
    std::string_view retryText;
    bool canRetry = false;
    while (!text.empty()) {
        if (pattern.starts_with('*')) {
            pattern.remove_prefix(1);
            retryPattern = pattern;
            retryText = text;
            canRetry = true;
        } else if (pattern.starts_with('?')) {
            pattern.remove_prefix(1);
            text.remove_prefix(characterLength(text));
        } else if (!pattern.empty() && pattern.front() == text.front()) {
            pattern.remove_prefix(1);
            text.remove_prefix(1);
        } else if (canRetry) {
            retryText.remove_prefix(characterLength(retryText));
            pattern = retryPattern;
            text = retryText;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*') == std::string_view::npos;
}

std::string behindPrefix(std::string_view prefix) {
    QString characters = QString::fromUtf8(prefix.data(), static_cast<qsizetype>(prefix.size()));
    auto codes = characters.toUcs4();
    constexpr uint FirstSurrogate = 0xD800;
    constexpr uint BehindSurrogates = 0xE000;
    constexpr uint Last = 0x10FFFF;
    while (!codes.isEmpty() && codes.back() == Last)
        codes.removeLast();
    if (codes.isEmpty())
        return {};
    codes.back() = codes.back() + 1 == FirstSurrogate ? BehindSurrogates : codes.back() + 1;
    return QString::fromUcs4(reinterpret_cast<const char32_t*>(codes.constData()), codes.size())
        .toStdString();
}

}  // namespace tessaly::tessalyd
