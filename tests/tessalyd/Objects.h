#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <QByteArray>
#include <QString>
#include <memory>

#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::test {

/// What a made object says of itself; the rest of it is a plain 16-bit image.
struct ObjectSpec {
    std::string patientId = "P1";
    std::string patientName = "Doe^Jane";
    std::string study = "1.2.826.0.1.1";
    std::string series = "1.2.826.0.1.1.1";
    std::string instance = "1.2.826.0.1.1.1.1";
    int side = 32;                                       ///< rows and columns
    int seed = 1;                                        ///< makes the pixels differ
    std::string sopClass = "1.2.840.10008.5.1.4.1.1.2";  ///< CT images
};

[[nodiscard]] std::unique_ptr<DcmFileFormat> makeObject(const ObjectSpec& spec);

/// Registers the toolkit's encoders and decoders, once.
void needCodecs();

/// Writes the object in the syntax given, encoding its pixels where the syntax is a compressed one.
/// Returns the file's path.
QString writeObject(const ObjectSpec& spec, const QString& file,
                    E_TransferSyntax syntax = EXS_LittleEndianExplicit);

/// The data set as it goes over the wire, in any syntax that is taken. What an encapsulated one promises of
/// its pixel data, its fragments do not keep.
[[nodiscard]] QByteArray dataSetIn(dicom::TransferSyntax syntax, const ObjectSpec& spec);

/// A file of this data set, whatever that is.
void writeFile(const QString& file, dicom::TransferSyntax syntax, const ObjectSpec& spec,
               const QByteArray& dataSet);

/// The bytes of a file's data set, without its meta header.
[[nodiscard]] QByteArray dataSetOf(const QString& file);

[[nodiscard]] E_TransferSyntax syntaxOf(const QString& file);

/// The pixels, decoded.
[[nodiscard]] QByteArray pixelsOf(const QString& file);

}  // namespace tessaly::test
