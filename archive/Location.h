#pragma once

#include <string>

namespace tessaly::archive {

/// A folder of a root that belongs to the server's jobs, and is no study's.
inline constexpr const char* SpoolFolder = ".spool";

/// Where a file lies, in the three parts that the tables keep.
struct Location {
    std::string studyPath;
    std::string seriesDir;
    std::string imageFile;

    /// The folder and the whole path as the tables' readers join them: with backslashes.
    [[nodiscard]] std::string folder() const { return studyPath + '\\' + seriesDir; }
    [[nodiscard]] std::string path() const { return folder() + '\\' + imageFile; }

    bool operator==(const Location&) const = default;
};

}  // namespace tessaly::archive
