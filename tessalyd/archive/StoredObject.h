#pragma once

#include "dicom/ObjectFile.h"
#include "tessalyd/archive/InstanceList.h"

namespace tessaly::tessalyd {

/// The file of an object of the archive, to be sent. What is sent of it is all of it, also when the file is
/// replaced meanwhile; its syntax is what the file says, which may have been replaced since the tables were
/// asked.
class StoredObject final : public dicom::ObjectFile {
  public:
    /// Throws std::runtime_error when the file is missing, cut off, another object's, cannot be read, or lies
    /// behind a symbolic link below its root. The text has no path; the log has it at level Debug.
    explicit StoredObject(const StoredInstance& instance);

    /// Decoded if need be, with its UIDs unchanged. All of it is in memory then, twice for a moment.
    [[nodiscard]] std::unique_ptr<dicom::OutgoingObject> in(const std::string& transferSyntax) override;
};

}  // namespace tessaly::tessalyd
