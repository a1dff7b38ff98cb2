#pragma once

#include "decoder/JobPlan.h"
#include "dicom/data/ElementWalk.h"
#include "dicom/data/ObjectFile.h"

namespace tessaly::tessalyd::images {

/// What a walk through an object meets, with a word on what may be passed over unread.
class HeaderVisitor : public dicom::ElementVisitor {
  public:
    /// Whether the value that comes next is to be told.
    [[nodiscard]] virtual bool wantsValue() const noexcept = 0;
};

/// Walks through a stored object until the visitor ends it, in time proportional to the bytes that are read:
/// values that are not wanted are passed over, where they are not deflated. Throws ImageRefusal where it is
/// not readable; std::runtime_error where the file cannot be read. What `heartbeat` and the visitor throw
/// comes through.
void walkHeader(const dicom::ObjectFile& object, HeaderVisitor& visitor, const decoder::Heartbeat& heartbeat);

}  // namespace tessaly::tessalyd::images
