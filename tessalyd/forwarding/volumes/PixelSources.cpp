#include "tessalyd/forwarding/volumes/PixelSources.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "tessalyd/forwarding/volumes/VolumeRefusal.h"

namespace tessaly::tessalyd::volumes {

namespace {

constexpr std::size_t MostAhead = 4;
constexpr std::chrono::milliseconds AskInterval{20};

}  // namespace

std::size_t frameOf(const images::PixelSource& source, const Slice& slice, const VolumeLayout& volume) {
    const decoder::ImageDescription& image = source.image();
    const std::uint64_t size = volume.pixelsOfSlice() * (slice.format.bitsAllocated / 8);
    const std::uint64_t at = slice.frame * size;
    if (image.rows != volume.rows || image.columns != volume.columns || image.samplesPerPixel != 1 ||
        image.bitsAllocated != slice.format.bitsAllocated || at + size > source.pixelBytes())
        throw VolumeRefusal{"an image has less pixel data than its header says"};
    return source.pixelsAt() + static_cast<std::size_t>(at);
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

std::unique_ptr<images::PixelSource> PixelSources::next() {
    const auto most = std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, MostAhead);
    for (; begun_ < objects_.size() && ahead_.size() < most; ++begun_)
        ahead_.push_back(std::async(std::launch::async, [this, object = objects_[begun_]] {
            const decoder::Interest interest{.stop = stop_.get_token(), .requestor = interest_.requestor};
            return std::make_unique<images::PixelSource>(open_(object), folder_, decoders_, interest);
        }));
    heartbeat_();
    while (ahead_.front().wait_for(AskInterval) != std::future_status::ready)
        heartbeat_();
    auto next = ahead_.front().get();
    ahead_.pop_front();
    return next;
}

}  // namespace tessaly::tessalyd::volumes
