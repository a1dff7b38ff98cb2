#pragma once

#include <span>
#include <string_view>

namespace tessaly::dicom {

struct StorageClass {
    const char* uid;
    const char* name;
};

/// The storage classes of the standard whose objects belong to a patient and a study, the retired ones and
/// those on trial included.
[[nodiscard]] std::span<const StorageClass> storageClasses() noexcept;

/// True if it is in the table.
[[nodiscard]] bool isStandardStorage(std::string_view uid);

/// True for what objects are taken of: the classes of the table, makers' own, and storage classes that the
/// standard has had since. False for what the standard uses for something else, and for storage classes
/// whose objects have no patient or no study.
[[nodiscard]] bool isStored(const char* uid);

}  // namespace tessaly::dicom
