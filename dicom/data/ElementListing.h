#pragma once

#include <cstddef>
#include <string>

#include "dicom/data/ElementWalk.h"

namespace tessaly::dicom {

/// Writes down what a walk meets, an element a line, in bounded memory. Values are printable: all that is not
/// ASCII, and all controls, come as \xHH.
class ElementListing final : public ElementVisitor {
  public:
    static constexpr std::size_t MostLines = 1000;
    /// Bytes of each value; of a longer one this is the beginning.
    static constexpr std::size_t LongestValue = 64;

    [[nodiscard]] bool element(const ElementHead& head) override;
    void value(std::span<const char> piece) override;

    /// The lines; the last one says how many are missing, if any are. Ends the listing.
    [[nodiscard]] std::string take();

  private:
    void endLine();

    std::string lines_;
    std::size_t count_ = 0;
    ElementHead head_;
    std::string value_;  // of head_, as far as it is shown
    bool isOpen_ = false;
};

}  // namespace tessaly::dicom
