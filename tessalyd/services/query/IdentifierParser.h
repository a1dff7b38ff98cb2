#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <cstddef>
#include <memory>
#include <span>

#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::tessalyd {

/// Elements of an identifier, with those in sequences and the sequences' items.
constexpr std::size_t MostIdentifierElements = 2000;

/// An identifier as it was received, whole. It is read by a walk of our own: the DICOM toolkit's parser calls
/// itself for sequences, and sorts by insertion. Sequences come back empty, as they are in answers: none of
/// them is a key. Of several elements with one tag the first counts. Throws RequestFailure with C000 for what
/// is no data set or is cut off, and for what is nested too deeply or has too many elements.
[[nodiscard]] std::unique_ptr<DcmDataset> parseIdentifier(std::span<const char> bytes,
                                                          dicom::TransferSyntax syntax);

}  // namespace tessaly::tessalyd
