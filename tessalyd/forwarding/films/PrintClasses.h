#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <cstdint>

namespace tessaly::tessalyd::films {

/// (2100,0500), Referenced Print Job Sequence: in the response to a print command. The toolkit has its name
/// for another, retired use of it.
inline const DcmTagKey ReferencedPrintJobSequence{0x2100, 0x0500};

/// Event types of Print Job (PS3.4, H.4.5).
enum class PrintJobEvent : std::uint16_t { Pending = 1, Printing = 2, Done = 3, Failure = 4 };

/// The action type of film session and film box.
inline constexpr std::uint16_t PrintAction = 1;

}  // namespace tessaly::tessalyd::films
