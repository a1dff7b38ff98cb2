#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "base/FileDescriptor.h"
#include "jobs/Spool.h"

namespace tessaly::tessalyd::print {

/// The spool folder of an association: the pixels of the images that it has sent. It goes with its owner;
/// what a killed server has left goes at the next start. Every call but remove() throws std::system_error.
class AssociationSpool {
  public:
    explicit AssociationSpool(jobs::Spool spool) : spool_(std::move(spool)) {}
    ~AssociationSpool();
    AssociationSpool(const AssociationSpool&) = delete;
    AssociationSpool& operator=(const AssociationSpool&) = delete;

    [[nodiscard]] const jobs::Spool& spool() const noexcept { return spool_; }
    /// A new name in the folder.
    [[nodiscard]] std::string newName();
    /// Makes the file.
    [[nodiscard]] base::FileDescriptor make(const std::string& name);
    /// The file gets that name in another folder of the spool, too.
    void link(const std::string& name, const std::filesystem::path& folder) const;
    void remove(const std::string& name) noexcept;

  private:
    [[nodiscard]] const std::filesystem::path& folder();

    jobs::Spool spool_;
    std::optional<jobs::Spool::Entry> entry_;
    std::uint64_t names_ = 0;
};

/// Writes an image's pixels into a new file while they come. Removes it in the end unless it was kept. What
/// cannot be written is noted, and the rest passed over.
class PixelFile {
  public:
    static constexpr std::uint64_t MostBytes = std::uint64_t{64} << 20U;

    explicit PixelFile(AssociationSpool& spool) : spool_(spool) {}
    ~PixelFile();
    PixelFile(const PixelFile&) = delete;
    PixelFile& operator=(const PixelFile&) = delete;

    void take(std::span<const char> pixels) noexcept;
    /// Bytes that have come.
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }
    [[nodiscard]] bool hasFailed() const noexcept { return hasFailed_; }
    /// Has the system begin to write it to the disk, and keeps it. Returns its name.
    [[nodiscard]] std::string keep();

  private:
    AssociationSpool& spool_;
    base::FileDescriptor file_;
    std::string name_;
    std::uint64_t size_ = 0;
    bool hasFailed_ = false;
};

}  // namespace tessaly::tessalyd::print
