#pragma once

#include "decoder/ObjectLayout.h"

namespace tessaly::decoder {

/// Reads what a deflated data set of `size` bytes says of itself, by inflating it up to its pixel data, or to
/// its end where it has none. The image is not described: what is native needs no more than its length.
/// Positions are those of the inflated data set. Returns nullopt if it cannot be inflated or is cut off
/// before that, is nested too deeply, does not come to its pixel data within 64 MB, or has pixel data in
/// fragments, as no deflated data set may. Time is proportional to what is inflated, memory constant. What
/// `readAt` throws comes through.
[[nodiscard]] std::optional<ObjectLayout> readDeflatedLayout(const dicom::FileWindow::ReadAt& readAt,
                                                             std::size_t size);

}  // namespace tessaly::decoder
