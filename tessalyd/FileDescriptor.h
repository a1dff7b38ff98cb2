#pragma once

#include "base/FileDescriptor.h"

namespace tessaly::tessalyd {

using base::FileDescriptor;

}  // namespace tessaly::tessalyd
