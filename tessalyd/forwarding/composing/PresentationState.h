#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "tessalyd/forwarding/composing/Header.h"
#include "tessalyd/forwarding/composing/Look.h"

namespace tessaly::tessalyd::composing {

[[nodiscard]] bool isPresentationState(const Header& header);

/// A Grayscale Softcopy Presentation State: how the images that it refers to are to look.
class PresentationState {
  public:
    explicit PresentationState(ObjectHeader header) : header_(std::move(header)) {}

    /// Whether it refers to the image, or to all frames of it.
    [[nodiscard]] bool refersTo(const std::string& sopInstanceUid) const;
    /// Puts what it says of a frame, counted from 0, in the place of what the image says. Other frames stay
    /// as they are.
    void apply(const std::string& sopInstanceUid, std::size_t frame, const decoder::ImageDescription& pixels,
               Look& look) const;
    /// What it has and apply() leaves out, in words; empty if that is nothing.
    [[nodiscard]] std::string leftOut() const;

  private:
    [[nodiscard]] bool applies(const Header& item, const std::string& uid, std::size_t frame) const;
    [[nodiscard]] const Header* itemFor(const DcmTagKey& sequence, const std::string& uid,
                                        std::size_t frame) const;

    ObjectHeader header_;
};

}  // namespace tessaly::tessalyd::composing
