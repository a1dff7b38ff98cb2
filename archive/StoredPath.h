#pragma once

#include <algorithm>
#include <string>

namespace tessaly::archive {

/// A path of the archive's tables as the file system takes it: what is stored has backslashes between its
/// parts.
[[nodiscard]] inline std::string localPath(std::string stored) {
    std::replace(stored.begin(), stored.end(), '\\', '/');
    return stored;
}

/// The stored path of the file of a row of Image, Series and Study, joined in a statement as Location::path()
/// joins it. A part without a value is an empty one.
[[nodiscard]] inline std::string storedPathInSql() {
    return "COALESCE(Study.StudyPath, '') || '\\' || COALESCE(Series.SeriesDir, '') || '\\' || "
           "COALESCE(Image.ImageFile, '')";
}

}  // namespace tessaly::archive
