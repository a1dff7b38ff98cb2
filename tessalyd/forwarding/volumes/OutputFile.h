#pragma once

#include <filesystem>
#include <span>

#include "base/FileDescriptor.h"

namespace tessaly::tessalyd::volumes {

/// A new file, which nobody else may read. Its functions throw std::system_error.
class OutputFile {
  public:
    explicit OutputFile(const std::filesystem::path& path);
    void write(std::span<const char> bytes);
    /// Tells what a file system says only at the end.
    void close();

  private:
    base::FileDescriptor file_;
};

}  // namespace tessaly::tessalyd::volumes
