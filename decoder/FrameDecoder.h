#pragma once

#include <string>
#include <vector>

#include "decoder/Fragments.h"
#include "decoder/JpegStream.h"
#include "decoder/ObjectLayout.h"
#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::decoder {

/// Registers the toolkit's codecs, for as long as the process lives. To be called before any FrameDecoder is
/// used, by one thread.
void registerCodecs();

/// Decodes the frames of one image, one at a time: nothing but a frame is in memory. Every stream is compared
/// with what the image says before a codec of the toolkit sees it, and every result afterwards.
class FrameDecoder {
  public:
    /// `sopClassUid` is that of the object: some classes want their colours by plane.
    FrameDecoder(ImageDescription image, dicom::TransferSyntax syntax, std::string sopClassUid);

    /// Decodes a frame into `target`, which becomes as long as the image's description says, in little
    /// endian. False if that cannot be done. The target's contents mean nothing then.
    [[nodiscard]] bool decode(Frame frame, std::vector<unsigned char>& target);

    /// How the pixels that were decoded are to be understood: decoding converts colours.
    [[nodiscard]] const ImageDescription& image() const noexcept { return image_; }

    /// True where each frame begins and ends with a marker.
    [[nodiscard]] bool streamsEnd() const noexcept {
        return syntax_.coding() == dicom::PixelCoding::Jpeg ||
               syntax_.coding() == dicom::PixelCoding::JpegLs ||
               syntax_.coding() == dicom::PixelCoding::Jpeg2000;
    }

  private:
    [[nodiscard]] bool matches(const JpegStream& stream) const;
    [[nodiscard]] bool inflate(Bytes stream, std::vector<unsigned char>& target) const;
    [[nodiscard]] bool decodeWavelets(Bytes stream, std::vector<unsigned char>& target);
    [[nodiscard]] bool decodeStream(Bytes stream, const JpegStream& described,
                                    std::vector<unsigned char>& target);

    const ImageDescription described_;
    ImageDescription image_;
    dicom::TransferSyntax syntax_;
    std::string sopClassUid_;
    std::size_t size_;
    std::vector<unsigned char> joined_;
};

}  // namespace tessaly::decoder
