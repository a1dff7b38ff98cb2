#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>

#include "base/FileDescriptor.h"
#include "decoder/Interest.h"
#include "decoder/ObjectLayout.h"
#include "decoder/Pool.h"
#include "dicom/data/ObjectFile.h"
#include "tessalyd/forwarding/images/ScratchFile.h"

namespace tessaly::tessalyd::images {

/// Pixels of one object, in little endian and not compressed: in its own file, or decoded in a scratch file.
class PixelSource {
  public:
    /// Gives the object in `file` out. Blocks while it is decoded, into a scratch file of the folder. Throws
    /// ImageRefusal where it cannot be, decoder::Abandoned, and std::exception where it may go better another
    /// time.
    PixelSource(base::FileDescriptor file, const std::filesystem::path& folder, decoder::Pool& decoders,
                const decoder::Interest& interest);

    /// What the pixels are now: not what they were while they were compressed.
    [[nodiscard]] const decoder::ImageDescription& image() const noexcept { return layout_.image; }
    /// Bytes of the data set.
    void read(std::size_t at, std::span<char> target) const;
    /// Where in the data set the pixels begin, and how many bytes they have.
    [[nodiscard]] std::size_t pixelsAt() const noexcept { return layout_.pixels->valueAt; }
    [[nodiscard]] std::size_t pixelBytes() const noexcept {
        return layout_.pixels->end - layout_.pixels->valueAt;
    }

  private:
    [[nodiscard]] std::size_t decode(const std::filesystem::path& folder, decoder::Pool& decoders,
                                     const decoder::Interest& interest, dicom::TransferSyntax to);

    dicom::ObjectFile object_;
    std::optional<ScratchFile> decoded_;
    decoder::ObjectLayout layout_;
};

}  // namespace tessaly::tessalyd::images
