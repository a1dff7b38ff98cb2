#pragma once

#include "dicom/SinkStream.h"

namespace tessaly::tessalyd {

using dicom::SinkStream;

}  // namespace tessaly::tessalyd
