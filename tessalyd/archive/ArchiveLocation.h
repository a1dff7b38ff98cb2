#pragma once

#include <string>

namespace tessaly::tessalyd {

/// Where a file lies, in the three parts that the tables keep.
struct ArchiveLocation {
    std::string studyPath;
    std::string seriesDir;
    std::string imageFile;

    /// The folder and the whole path as the tables' readers join them: with backslashes.
    [[nodiscard]] std::string folder() const { return studyPath + '\\' + seriesDir; }
    [[nodiscard]] std::string path() const { return folder() + '\\' + imageFile; }

    bool operator==(const ArchiveLocation&) const = default;
};

}  // namespace tessaly::tessalyd
