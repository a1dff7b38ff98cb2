#include "tessalyd/forwarding/volumes/GzipFile.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <thread>
#include <utility>

namespace tessaly::tessalyd::volumes {

namespace {

constexpr std::size_t PartSize = std::size_t{256} << 10U;
constexpr std::size_t MostThreads = 4;
constexpr int Level = 1;
constexpr int RawDeflate = -15;  // the largest window, without a header
constexpr int MemoryLevel = 8;

struct Deflate {
    z_stream stream{};
    Deflate() {
        if (::deflateInit2(&stream, Level, Z_DEFLATED, RawDeflate, MemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK)
            throw std::bad_alloc{};
    }
    ~Deflate() { ::deflateEnd(&stream); }
    Deflate(const Deflate&) = delete;
    Deflate& operator=(const Deflate&) = delete;
};

}  // namespace

GzipFile::GzipFile(const std::filesystem::path& path)
    : file_(path), threads_(std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, MostThreads)) {
    // Deflated, no name, no time, made by a Unix.
    constexpr std::array<char, 10> Header{'\x1f', '\x8b', 8, 0, 0, 0, 0, 0, 0, 3};
    file_.write(Header);
    next_.reserve(PartSize);
}

void GzipFile::write(std::span<const char> bytes) {
    while (!bytes.empty()) {
        const auto part = bytes.first(std::min(bytes.size(), PartSize - next_.size()));
        next_.insert(next_.end(), part.begin(), part.end());
        bytes = bytes.subspan(part.size());
        if (next_.size() == PartSize)
            begin();
    }
}

void GzipFile::begin() {
    if (parts_.size() == threads_)
        takeFirst();
    parts_.push_back(
        std::async(std::launch::async, [part = std::exchange(next_, {})] { return deflated(part); }));
    next_.reserve(PartSize);
}

/// Ends at a byte, with a block that is not the last.
GzipFile::Part GzipFile::deflated(const std::vector<char>& bytes) {
    Deflate deflate;
    Part part{.size = bytes.size()};
    constexpr std::size_t OfFlush = 16;
    part.deflated.resize(::deflateBound(&deflate.stream, static_cast<uLong>(bytes.size())) + OfFlush);
    // The library takes nothing away from what it reads.
    deflate.stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    deflate.stream.avail_in = static_cast<uInt>(bytes.size());
    deflate.stream.next_out = reinterpret_cast<Bytef*>(part.deflated.data());
    deflate.stream.avail_out = static_cast<uInt>(part.deflated.size());
    if (::deflate(&deflate.stream, Z_SYNC_FLUSH) != Z_OK || deflate.stream.avail_in > 0 ||
        deflate.stream.avail_out == 0)
        throw std::bad_alloc{};
    part.deflated.resize(part.deflated.size() - deflate.stream.avail_out);
    part.sum = static_cast<std::uint32_t>(
        ::crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
    return part;
}

void GzipFile::takeFirst() {
    const Part part = parts_.front().get();
    parts_.pop_front();
    file_.write(part.deflated);
    sum_ = static_cast<std::uint32_t>(::crc32_combine(sum_, part.sum, static_cast<z_off_t>(part.size)));
    size_ += part.size;
}

void GzipFile::finish() {
    if (!next_.empty())
        begin();
    while (!parts_.empty())
        takeFirst();
    constexpr std::array<char, 2> LastBlock{3, 0};  // which is empty
    file_.write(LastBlock);
    const std::array<std::uint32_t, 2> trailer{sum_, static_cast<std::uint32_t>(size_)};
    std::array<char, sizeof trailer> bytes{};
    std::memcpy(bytes.data(), trailer.data(), bytes.size());
    file_.write(bytes);
    file_.close();
}

}  // namespace tessaly::tessalyd::volumes
