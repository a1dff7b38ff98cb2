#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace tessaly::tessalyd::films {

/// How a film is divided into image boxes: Image Display Format, of the kinds STANDARD, ROW and COL.
class DisplayFormat {
  public:
    static constexpr std::size_t MostBoxes = 64;

    /// "STANDARD\2,3": columns and rows; "ROW\1,2": the boxes of each row; "COL\1,2": of each column. Returns
    /// nullopt for anything else, and for more than MostBoxes.
    [[nodiscard]] static std::optional<DisplayFormat> parse(std::string_view text);

    [[nodiscard]] std::size_t boxes() const;

    struct Size {
        unsigned width = 0;
        unsigned height = 0;
    };
    /// Pixels of a box, counted from 0, of a film of that size. Each is 1 at least.
    [[nodiscard]] Size boxOf(std::size_t box, const Size& film) const;

  private:
    bool byColumn_ = false;            // the groups are columns
    std::vector<std::size_t> groups_;  // boxes in each row, or column, in the order of the positions
};

}  // namespace tessaly::tessalyd::films
