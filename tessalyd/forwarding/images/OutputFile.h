#pragma once

#include <filesystem>
#include <span>

#include "base/FileDescriptor.h"

namespace tessaly::tessalyd::images {

/// A new file, which nobody else may read. Its functions throw std::system_error.
class OutputFile {
  public:
    explicit OutputFile(const std::filesystem::path& path);
    void write(std::span<const char> bytes);
    /// Has the system begin to write it to the disk: the less is left to do when it must be there.
    void beginFlush() noexcept;
    /// Tells what a file system says only at the end.
    void close();

  private:
    base::FileDescriptor file_;
};

}  // namespace tessaly::tessalyd::images
