#pragma once

#include "decoder/Pool.h"
#include "dicom/data/ObjectFile.h"
#include "tessalyd/search/InstanceList.h"

namespace tessaly::tessalyd {

/// The file of an object of the archive, to be sent. What is sent of it is all of it, also when the file is
/// replaced meanwhile; its syntax is what the file says, which may have been replaced since the tables were
/// asked.
class StoredObject final : public dicom::ObjectFile {
  public:
    /// Throws std::runtime_error when the file is missing, cut off, another object's, cannot be read, or lies
    /// behind a symbolic link below its root. The text has no path; the log has it at level Debug.
    explicit StoredObject(const StoredInstance& instance);

    /// The same object in another syntax, decoded if need be, with its UIDs unchanged; it lies in a file
    /// without a name. Blocks until a decoder has made it; nullptr once the interest has ended. Throws
    /// std::runtime_error, which says why, if it cannot be made, and what `interest` throws.
    [[nodiscard]] std::unique_ptr<dicom::OutgoingObject> convertedTo(const std::string& transferSyntax,
                                                                     decoder::Pool& decoders,
                                                                     const decoder::Interest& interest) const;
};

}  // namespace tessaly::tessalyd
