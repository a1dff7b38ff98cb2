#pragma once

#include "tessalyd/forwarding/ftp/Fault.h"
#include "tessalyd/forwarding/ftp/Transfer.h"

namespace tessaly::tessalyd::ftp {

/// What an operation that was not done means, in words of our own.
[[nodiscard]] Fault faultOf(const Transfer::Result& result, const Limits& limits);

}  // namespace tessaly::tessalyd::ftp
