#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace tessaly::tessalyd {

/// How many entities a page of a search has. The first answers come at once; later pages are so large that
/// finding where they begin does not count, but not so large that what they cost the engine, which may find
/// all of a page before it gives the first row, keeps anybody waiting who wants the search to end.
class SearchPageSize {
  public:
    [[nodiscard]] std::size_t entities() const noexcept { return entities_; }

    /// The engine took so long until the first row of a page.
    void adapt(std::chrono::steady_clock::duration took) {
        constexpr std::size_t Growth = 4;
        constexpr std::size_t Largest = 2048;
        constexpr std::chrono::milliseconds Long{20};
        const auto each = took / entities_;
        const bool wasLong = took >= Long;
        // A page that costs much because its beginning has to be found costs that again in every smaller one.
        if (wasLong && each / 2 > before_)
            smallerIsNoHelp_ = true;
        entities_ = wasLong && !smallerIsNoHelp_ ? std::max(entities_ / Growth, std::size_t{1})
                                                 : std::min(entities_ * Growth, Largest);
        before_ = each;
    }

  private:
    std::size_t entities_ = 32;
    std::chrono::steady_clock::duration before_ =
        std::chrono::steady_clock::duration::max();  // for an entity of the page before
    bool smallerIsNoHelp_ = false;
};

}  // namespace tessaly::tessalyd
