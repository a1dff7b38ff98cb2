#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tessaly::tessalyd {

/// The matches of a search that have been read and wait to be taken: their values, one behind the other, and
/// where each ends.
class MatchBuffer {
  public:
    explicit MatchBuffer(std::size_t values) : values_(values) {}

    void clear() noexcept {
        text_.clear();
        ends_.clear();
        matches_ = passed_ = 0;
    }
    /// All values of a match in their order, then endMatch().
    void add(std::string_view value) {
        text_ += value;
        ends_.push_back(static_cast<std::uint32_t>(text_.size()));
    }
    void endMatch() noexcept { ++matches_; }

    [[nodiscard]] bool isEmpty() const noexcept { return matches_ == 0; }
    [[nodiscard]] std::size_t bytes() const noexcept { return text_.size(); }

    /// Goes to the next match. Returns false when there is none.
    [[nodiscard]] bool next() noexcept {
        if (passed_ == matches_)
            return false;
        ++passed_;
        return true;
    }
    /// Of the current match; holds until next() or clear().
    [[nodiscard]] std::string_view value(std::size_t index) const {
        const std::size_t number = (passed_ - 1) * values_ + index;
        const std::size_t begin = number == 0 ? 0 : ends_[number - 1];
        return std::string_view{text_}.substr(begin, ends_[number] - begin);
    }

  private:
    std::size_t values_;  // of a match
    std::string text_;
    std::vector<std::uint32_t> ends_;
    std::size_t matches_ = 0;
    std::size_t passed_ = 0;  // of these
};

}  // namespace tessaly::tessalyd
