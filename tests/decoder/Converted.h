#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <QByteArrayList>
#include <memory>
#include <optional>

#include "decoder/Fragments.h"
#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::test {

[[nodiscard]] decoder::Bytes bytesOf(const QByteArray& bytes);

/// What a decoder makes of a data set; nothing where it cannot.
[[nodiscard]] std::optional<QByteArray> converted(const QByteArray& object, dicom::TransferSyntax from,
                                                  dicom::TransferSyntax to = EXS_LittleEndianExplicit);

/// As the toolkit reads it.
[[nodiscard]] std::unique_ptr<DcmDataset> parsed(const QByteArray& object, E_TransferSyntax syntax);
/// Native pixel data, in little endian.
[[nodiscard]] QByteArray pixelsIn(DcmItem& set);

/// The basic offset table of frames of so many fragments, or with entries of 8 bytes the extended one.
[[nodiscard]] QByteArray tableOf(const QList<QByteArrayList>& frames, qsizetype entrySize = 4);

}  // namespace tessaly::test
