#pragma once

#include <cstddef>
#include <deque>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <stop_token>
#include <vector>

#include "base/FileDescriptor.h"
#include "decoder/Interest.h"
#include "decoder/JobPlan.h"
#include "decoder/Pool.h"
#include "tessalyd/forwarding/images/PixelSource.h"
#include "tessalyd/forwarding/volumes/VolumeLayout.h"

namespace tessaly::tessalyd::volumes {

/// Where in the data set of the source a frame begins. Throws VolumeRefusal where it is not there as a slice
/// of the volume.
[[nodiscard]] std::size_t frameOf(const images::PixelSource& source, const Slice& slice,
                                  const VolumeLayout& volume);

/// Opens an object of the series, by its number. Called by several threads at a time. Faults name no path,
/// which may have UIDs in it.
using OpenObject = std::function<base::FileDescriptor(std::size_t)>;

/// Makes the objects ready in their order, a few at a time, so that as many decoders work as there are cores.
/// What it is given outlives it.
class PixelSources {
  public:
    PixelSources(std::vector<std::size_t> objects, const OpenObject& open,
                 const std::filesystem::path& folder, decoder::Pool& decoders,
                 const decoder::Interest& interest, const decoder::Heartbeat& heartbeat);
    /// Ends what is under way.
    ~PixelSources();
    PixelSources(const PixelSources&) = delete;
    PixelSources& operator=(const PixelSources&) = delete;

    /// The next object, of which there is one. Throws what the constructor of PixelSource and the heartbeat
    /// throw.
    [[nodiscard]] std::unique_ptr<images::PixelSource> next();

  private:
    struct RequestStop {
        std::stop_source& stop;
        void operator()() const noexcept { stop.request_stop(); }
    };

    const std::vector<std::size_t> objects_;
    const OpenObject& open_;
    const std::filesystem::path& folder_;
    decoder::Pool& decoders_;
    const decoder::Interest& interest_;
    const decoder::Heartbeat& heartbeat_;  // called by this thread alone
    std::stop_source stop_;
    std::stop_callback<RequestStop> onStop_;
    std::size_t begun_ = 0;
    std::deque<std::future<std::unique_ptr<images::PixelSource>>> ahead_;
};

}  // namespace tessaly::tessalyd::volumes
