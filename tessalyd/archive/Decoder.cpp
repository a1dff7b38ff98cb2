#include "tessalyd/archive/Decoder.h"

#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcrledrg.h>
#include <dcmtk/dcmjpeg/djdecode.h>
#include <dcmtk/dcmjpls/djdecode.h>

#include <vector>

#include "dicom/DataSetWalk.h"
#include "tessalyd/archive/SinkStream.h"

namespace tessaly::tessalyd {

Decoders::Decoders() {
    DJDecoderRegistration::registerCodecs(EDC_photometricInterpretation, EUC_never);
    DJLSDecoderRegistration::registerCodecs(EJLSUC_never);
    DcmRLEDecoderRegistration::registerCodecs(OFFalse);
}

Decoders::~Decoders() {
    DJDecoderRegistration::cleanup();
    DJLSDecoderRegistration::cleanup();
    DcmRLEDecoderRegistration::cleanup();
}

bool Decoders::has(E_TransferSyntax syntax) noexcept {
    switch (syntax) {
        case EXS_JPEGProcess1:
        case EXS_JPEGProcess2_4:
        case EXS_JPEGProcess6_8:
        case EXS_JPEGProcess10_12:
        case EXS_JPEGProcess14:
        case EXS_JPEGProcess14SV1:
        case EXS_JPEGLSLossless:
        case EXS_JPEGLSLossy:
        case EXS_RLELossless:
            return true;
        default:
            return false;
    }
}

bool Decoders::decode(const ArchiveFile& source, std::size_t dataSetAt, ArchiveFile& target) {
    std::vector<char> bytes(source.size() - dataSetAt);
    source.readAt(dataSetAt, bytes);
    // What is encoded comes in explicit little endian around its pixels.
    if (dicom::nestsTooDeep(bytes, Target))
        return false;
    bytes = {};
    DcmFileFormat object;
    if (object.loadFile(source.temporaryPath().c_str()).bad())
        return false;
    DcmDataset& dataset = *object.getDataset();
    if (dataset.chooseRepresentation(Target, nullptr).bad() || !dataset.canWriteXfer(Target))
        return false;
    dataset.removeAllButCurrentRepresentations();
    SinkStream stream{[&target](std::span<const char> block) { target.write(block); }};
    object.transferInit();
    const OFCondition written = object.write(stream, Target, EET_ExplicitLength, nullptr, EGL_recalcGL,
                                             EPD_noChange, 0, 0, 0, EWM_fileformat);
    object.transferEnd();
    stream.rethrow();
    return written.good();
}

}  // namespace tessaly::tessalyd
