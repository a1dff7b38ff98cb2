#include "tessalyd/forwarding/images/PixelSource.h"

#include <stdexcept>
#include <utility>

#include "decoder/Syntaxes.h"
#include "dicom/data/FileWindow.h"
#include "tessalyd/forwarding/images/ImageRefusal.h"

namespace tessaly::tessalyd::images {

PixelSource::PixelSource(base::FileDescriptor file, const std::filesystem::path& folder,
                         decoder::Pool& decoders, const decoder::Interest& interest)
    : object_({}, std::move(file)) {
    dicom::TransferSyntax syntax{object_.kind().transferSyntax};
    std::size_t size = object_.size();
    if (!decoder::isNative(syntax) || !syntax.isLittleEndian()) {
        constexpr E_TransferSyntax Native = EXS_LittleEndianExplicit;
        size = decode(folder, decoders, interest, Native);
        syntax = Native;
    }
    dicom::FileWindow window{size, [&](std::size_t at, std::span<char> target) {
                                 decoder::require(interest);
                                 read(at, target);
                             }};
    auto layout = decoder::readLayout(window, size, syntax);
    if (!layout || !layout->pixels || layout->pixels->isEncapsulated)
        throw ImageRefusal{"an image cannot be decoded: its data set cannot be read"};
    layout_ = std::move(*layout);
}

void PixelSource::read(std::size_t at, std::span<char> target) const {
    if (decoded_)
        decoded_->read(at, target);
    else
        object_.readAt(at, target);
}

std::size_t PixelSource::decode(const std::filesystem::path& folder, decoder::Pool& decoders,
                                const decoder::Interest& interest, dicom::TransferSyntax to) {
    decoded_.emplace(folder);
    const decoder::Result result =
        decoders.convert({.file = object_.descriptor(),
                          .dataSetAt = object_.dataSetAt(),
                          .size = object_.size(),
                          .syntax = dicom::TransferSyntax{object_.kind().transferSyntax}},
                         {.file = decoded_->descriptor(), .syntax = to}, interest);
    if (result.outcome == decoder::Outcome::Stopped)
        throw decoder::Abandoned{};
    if (result.outcome != decoder::Outcome::Converted && result.isTransient)
        throw std::runtime_error{"an image could not be decoded: " + result.reason};
    if (result.outcome != decoder::Outcome::Converted)
        throw ImageRefusal{"an image cannot be decoded: " + result.reason};
    return decoded_->size();
}

}  // namespace tessaly::tessalyd::images
