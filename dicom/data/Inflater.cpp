#include "dicom/data/Inflater.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>
#include <new>

namespace tessaly::dicom {

namespace {

constexpr std::size_t BlockSize = std::size_t{32} << 10U;
constexpr int RawStream = -MAX_WBITS;  // without a header of zlib's

}  // namespace

struct Inflater::Stream {
    z_stream z{};
    std::array<char, BlockSize> block;
};

Inflater::Inflater() : stream_(std::make_unique<Stream>()) {
    if (::inflateInit2(&stream_->z, RawStream) != Z_OK)
        throw std::bad_alloc{};
}

Inflater::~Inflater() {
    ::inflateEnd(&stream_->z);
}

Inflater::State Inflater::inflate(std::span<const char> deflated, const Take& take) {
    z_stream& z = stream_->z;
    std::array<char, BlockSize>& block = stream_->block;
    while (state_ == State::Open && (!deflated.empty() || z.avail_out == 0)) {
        const std::size_t part =
            std::min<std::size_t>(deflated.size(), std::numeric_limits<decltype(z.avail_in)>::max());
        // zlib reads what it is given and has no word for that.
        z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(deflated.data()));
        z.avail_in = static_cast<decltype(z.avail_in)>(part);
        z.next_out = reinterpret_cast<Bytef*>(block.data());
        z.avail_out = BlockSize;
        const int result = ::inflate(&z, Z_NO_FLUSH);
        deflated = deflated.subspan(part - z.avail_in);
        const std::size_t made = BlockSize - z.avail_out;
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
            state_ = State::Broken;
        if (made > 0 && take({block.data(), made}))
            state_ = State::Enough;
        else if (result == Z_STREAM_END)
            state_ = State::Ended;
        else if (result == Z_BUF_ERROR)
            break;  // nothing can be done with what is there
    }
    return state_;
}

}  // namespace tessaly::dicom
