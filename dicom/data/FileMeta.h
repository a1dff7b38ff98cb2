#pragma once

#include <string>
#include <vector>

namespace tessaly::dicom {

/// What a file says of the object in it, in front of the data set.
struct FileMeta {
    std::string sopClassUid;
    std::string sopInstanceUid;
    std::string transferSyntaxUid;
    std::string sourceAeTitle;
};

/// The beginning of a DICOM file up to its data set: the preamble, the prefix and the file meta information
/// (PS3.10, 7.1). Throws std::length_error for a value that is longer than its element can say.
[[nodiscard]] std::vector<char> encoded(const FileMeta& meta);

}  // namespace tessaly::dicom
