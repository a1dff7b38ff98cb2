#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <cstddef>
#include <functional>
#include <span>

namespace tessaly::dicom {

/// True when sequences lie within each other so deep that the DICOM toolkit cannot be given the data set: its
/// parser calls itself for each of them, and a peer could have it use up the stack. Looks no further than the
/// first element that is `end` or behind it; what is cut off is no matter. Where the bytes can be understood
/// in two ways, the deeper one counts.
[[nodiscard]] bool nestsTooDeep(std::span<const char> dataSet, E_TransferSyntax syntax,
                                const DcmTagKey& end = DcmTagKey{0xffff, 0xffff});

/// True when a value is longer than what is there of it, or a header is there in part. What is merely not
/// ended, as some devices leave the last sequence, or is filled up with zeros, is whole.
[[nodiscard]] bool isCutOff(std::span<const char> dataSet, E_TransferSyntax syntax);
/// The same of a data set that is not in memory: `byteAt` is asked for hardly more than the elements'
/// headers, and comes through with what it throws.
[[nodiscard]] bool isCutOff(const std::function<char(std::size_t)>& byteAt, std::size_t size,
                            E_TransferSyntax syntax);

}  // namespace tessaly::dicom
