#include "tessalyd/forwarding/volumes/PixelSource.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>

#include "decoder/Syntaxes.h"
#include "dicom/data/FileWindow.h"
#include "tessalyd/forwarding/volumes/VolumeRefusal.h"

namespace tessaly::tessalyd::volumes {

namespace {

constexpr std::size_t MostAhead = 4;
constexpr std::chrono::milliseconds AskInterval{20};

}  // namespace

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
        throw VolumeRefusal{"an image cannot be decoded: its data set cannot be read"};
    layout_ = std::move(*layout);
}

void PixelSource::read(std::size_t at, std::span<char> target) const {
    if (decoded_)
        decoded_->read(at, target);
    else
        object_.readAt(at, target);
}

std::size_t PixelSource::frameAt(const Slice& slice, const VolumeLayout& volume) const {
    const decoder::ImageDescription& image = layout_.image;
    const std::uint64_t size = volume.pixelsOfSlice() * (slice.format.bitsAllocated / 8);
    const std::uint64_t at = slice.frame * size;
    if (image.rows != volume.rows || image.columns != volume.columns || image.samplesPerPixel != 1 ||
        image.bitsAllocated != slice.format.bitsAllocated ||
        at + size > layout_.pixels->end - layout_.pixels->valueAt)
        throw VolumeRefusal{"an image has less pixel data than its header says"};
    return layout_.pixels->valueAt + static_cast<std::size_t>(at);
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
        throw VolumeRefusal{"an image cannot be decoded: " + result.reason};
    return decoded_->size();
}

PixelSources::PixelSources(std::vector<std::size_t> objects, const OpenObject& open,
                           const std::filesystem::path& folder, decoder::Pool& decoders,
                           const decoder::Interest& interest, const decoder::Heartbeat& heartbeat)
    : objects_(std::move(objects)),
      open_(open),
      folder_(folder),
      decoders_(decoders),
      interest_(interest),
      heartbeat_(heartbeat),
      onStop_(interest.stop, RequestStop{stop_}) {}

PixelSources::~PixelSources() {
    stop_.request_stop();
}

std::unique_ptr<PixelSource> PixelSources::next() {
    const auto most = std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, MostAhead);
    for (; begun_ < objects_.size() && ahead_.size() < most; ++begun_)
        ahead_.push_back(std::async(std::launch::async, [this, object = objects_[begun_]] {
            const decoder::Interest interest{.stop = stop_.get_token(), .requestor = interest_.requestor};
            return std::make_unique<PixelSource>(open_(object), folder_, decoders_, interest);
        }));
    heartbeat_();
    while (ahead_.front().wait_for(AskInterval) != std::future_status::ready)
        heartbeat_();
    auto next = ahead_.front().get();
    ahead_.pop_front();
    return next;
}

}  // namespace tessaly::tessalyd::volumes
