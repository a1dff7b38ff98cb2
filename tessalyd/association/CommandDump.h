#pragma once

#include "dicom/net/MessageStream.h"

namespace tessaly::tessalyd {

/// Writes every command set into the dump of the VR layer while that is on.
[[nodiscard]] dicom::MessageStream::Trace commandDump();

}  // namespace tessaly::tessalyd
