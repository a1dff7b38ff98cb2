#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <future>
#include <span>
#include <vector>

#include "tessalyd/forwarding/images/OutputFile.h"

namespace tessaly::tessalyd::volumes {

/// A gzip file (RFC 1952) of one member. Its parts are deflated beside each other, in some threads. Throws
/// std::system_error, std::bad_alloc.
class GzipFile {
  public:
    explicit GzipFile(const std::filesystem::path& path);
    GzipFile(const GzipFile&) = delete;
    GzipFile& operator=(const GzipFile&) = delete;
    /// Waits for the parts that are being deflated: some ms.
    ~GzipFile() = default;

    void write(std::span<const char> bytes);
    /// Without it the file is cut off.
    void finish();

  private:
    struct Part {
        std::vector<char> deflated;
        std::size_t size = 0;  ///< before
        std::uint32_t sum = 0;
    };
    [[nodiscard]] static Part deflated(const std::vector<char>& bytes);
    void begin();
    void takeFirst();

    images::OutputFile file_;
    std::size_t threads_;
    std::vector<char> next_;
    std::deque<std::future<Part>> parts_;
    std::uint32_t sum_ = 0;
    std::uint64_t size_ = 0;
};

}  // namespace tessaly::tessalyd::volumes
