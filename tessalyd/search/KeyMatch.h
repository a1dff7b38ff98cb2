#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tessalyd/search/QueryKeys.h"

namespace tessaly::tessalyd {

/// A condition that an index can be searched by. It lets through all that a key asks for, and may let through
/// more; texts compare by their bytes.
struct IndexCondition {
    enum class Kind { OneOf, Between, Prefix, From, Until, Null };
    Kind kind = Kind::OneOf;
    std::vector<std::string> values;  ///< of a Prefix: the first text with it and the first behind
    int column = 0;                   ///< index into QueryKey::indexed
    bool loose = false;               ///< a prefix so short that it leaves much
};

/// What one key of a query asks for. The text is UTF-8. Used by one thread at a time.
class KeyMatch {
  public:
    /// Matches everything.
    KeyMatch() = default;
    KeyMatch(const QueryKey& key, std::string_view asked);

    /// True when every value matches, one that is not there too.
    [[nodiscard]] bool isUniversal() const noexcept { return !decide_; }

    /// Nothing when the stored value is not what is asked for. Otherwise the first of the alternatives() by
    /// which it is, 0 where there are none.
    [[nodiscard]] std::optional<std::size_t> matches(std::string_view stored) const {
        return decide_ ? decide_(stored) : std::optional<std::size_t>{0};
    }

    /// What can be searched for instead of looking at everything: the union of these. Empty: nothing can.
    [[nodiscard]] const std::vector<IndexCondition>& alternatives() const noexcept { return alternatives_; }

  private:
    friend class KeyMatchMaker;
    using Decision = std::function<std::optional<std::size_t>(std::string_view)>;
    Decision decide_;
    std::vector<IndexCondition> alternatives_;
};

/// A range of dates and times as one, from the texts of the two keys; nothing when neither is a range or one
/// cannot be understood: they are compared apart then. Gives the decision on a stored date and time.
[[nodiscard]] std::function<bool(std::string_view date, std::string_view time)> combinedMatch(
    std::string_view date, std::string_view time);

/// The values of a list with backslashes between them, without blanks; empty ones are left out.
[[nodiscard]] std::vector<std::string> listed(std::string_view text);

/// `*` is any text, `?` one character; both texts are UTF-8.
[[nodiscard]] bool matchesPattern(std::string_view pattern, std::string_view text) noexcept;

/// The first text behind all that begin with `prefix`, in the order of the bytes; empty when there is none.
[[nodiscard]] std::string behindPrefix(std::string_view prefix);

}  // namespace tessaly::tessalyd
