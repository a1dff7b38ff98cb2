#include "tests/tessalyd/Objects.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcrledrg.h>
#include <dcmtk/dcmdata/dcrleerg.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmjpeg/djdecode.h>
#include <dcmtk/dcmjpeg/djencode.h>
#include <dcmtk/dcmjpls/djdecode.h>
#include <dcmtk/dcmjpls/djencode.h>

#include <QFile>
#include <QtEndian>
#include <stdexcept>
#include <vector>

#include "tests/tessalyd/Deflated.h"
#include "tests/tessalyd/Encapsulated.h"

namespace tessaly::test {

namespace {

void check(const OFCondition& condition) {
    if (condition.bad())
        throw std::runtime_error{condition.text()};
}

struct Codecs {
    Codecs() {
        DJDecoderRegistration::registerCodecs(EDC_photometricInterpretation, EUC_never);
        DJLSDecoderRegistration::registerCodecs(EJLSUC_never);
        DcmRLEDecoderRegistration::registerCodecs(OFFalse);
        DJEncoderRegistration::registerCodecs(ECC_lossyYCbCr, EUC_never);
        DJLSEncoderRegistration::registerCodecs();
        DcmRLEEncoderRegistration::registerCodecs();
    }
    ~Codecs() {
        DJDecoderRegistration::cleanup();
        DJLSDecoderRegistration::cleanup();
        DcmRLEDecoderRegistration::cleanup();
        DJEncoderRegistration::cleanup();
        DJLSEncoderRegistration::cleanup();
        DcmRLEEncoderRegistration::cleanup();
    }
};

void loadFile(DcmFileFormat& object, const QString& file) {
    check(object.loadFile(qPrintable(file)));
    object.loadAllDataIntoMemory();
}

}  // namespace

void needCodecs() {
    static const Codecs codecs;
}

std::unique_ptr<DcmFileFormat> makeObject(const ObjectSpec& spec) {
    auto object = std::make_unique<DcmFileFormat>();
    DcmDataset& set = *object->getDataset();
    const auto put = [&set](const DcmTagKey& tag, const std::string& value) {
        check(set.putAndInsertString(tag, value.c_str()));
    };
    put(DCM_SOPClassUID, spec.sopClass);
    put(DCM_SOPInstanceUID, spec.instance);
    put(DCM_StudyDate, "20240131");
    put(DCM_StudyTime, "101530");
    put(DCM_AccessionNumber, "A77");
    put(DCM_Modality, "CT");
    put(DCM_StudyDescription, "Thorax");
    put(DCM_SeriesDescription, "Native");
    put(DCM_PatientName, spec.patientName);
    put(DCM_PatientID, spec.patientId);
    put(DCM_PatientBirthDate, "19700102");
    put(DCM_PatientSex, "F");
    put(DCM_StudyInstanceUID, spec.study);
    put(DCM_SeriesInstanceUID, spec.series);
    put(DCM_StudyID, "S5");
    put(DCM_SeriesNumber, "3");
    put(DCM_InstanceNumber, std::to_string(spec.seed));
    put(DCM_PhotometricInterpretation, "MONOCHROME2");
    const auto side = static_cast<Uint16>(spec.side);
    for (const auto& [tag, value] : {std::pair{DCM_Rows, side},
                                     {DCM_Columns, side},
                                     {DCM_SamplesPerPixel, Uint16{1}},
                                     {DCM_BitsAllocated, Uint16{16}},
                                     {DCM_BitsStored, Uint16{12}},
                                     {DCM_HighBit, Uint16{11}},
                                     {DCM_PixelRepresentation, Uint16{0}}})
        check(set.putAndInsertUint16(tag, value));
    std::vector<Uint16> pixels(static_cast<std::size_t>(spec.side) * static_cast<std::size_t>(spec.side));
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<Uint16>((i / 3 + static_cast<std::size_t>(spec.seed)) & 0xfffU);
    check(set.putAndInsertUint16Array(DCM_PixelData, pixels.data(), pixels.size()));
    return object;
}

QString writeObject(const ObjectSpec& spec, const QString& file, E_TransferSyntax syntax) {
    const auto object = makeObject(spec);
    if (DcmXfer{syntax}.isEncapsulated()) {
        needCodecs();
        check(object->chooseRepresentation(syntax, nullptr));
    }
    check(object->saveFile(qPrintable(file), syntax, EET_ExplicitLength));
    return file;
}

QByteArray dataSetIn(dicom::TransferSyntax syntax, const ObjectSpec& spec) {
    if (syntax.isEncapsulated()) {
        const QByteArray fragment = "any bytes of the instance " + QByteArray::fromStdString(spec.instance);
        return encapsulated({.object = spec}, {fragment, fragment.repeated(100)});
    }
    const auto object = makeObject(spec);
    DcmDataset& set = *object->getDataset();
    const E_TransferSyntax written = syntax.isDeflated() ? EXS_LittleEndianExplicit : syntax.toolkitName();
    std::vector<char> bytes(set.calcElementLength(written, EET_ExplicitLength));
    DcmOutputBufferStream out{bytes.data(), static_cast<offile_off_t>(bytes.size())};
    set.transferInit();
    check(set.write(out, written, EET_ExplicitLength, nullptr));
    set.transferEnd();
    const QByteArray plain{bytes.data(), static_cast<qsizetype>(out.tell())};
    return syntax.isDeflated() ? deflated(plain) : plain;
}

void writeFile(const QString& file, dicom::TransferSyntax syntax, const ObjectSpec& spec,
               const QByteArray& dataSet) {
    const auto element = [](quint16 number, const char* vr, const std::string& value) {
        QByteArray bytes = QByteArray::fromHex("0200") + QByteArray(4, '\0') +
                           QByteArray::fromStdString(value.size() % 2 == 0 ? value : value + '\0');
        qToLittleEndian(number, bytes.data() + 2);
        bytes.insert(4, vr);
        qToLittleEndian(static_cast<quint16>(bytes.size() - 8), bytes.data() + 6);
        return bytes;
    };
    const QByteArray meta = element(0x02, "UI", spec.sopClass) + element(0x03, "UI", spec.instance) +
                            element(0x10, "UI", syntax.uid()) + element(0x12, "UI", "1.2.3");
    std::string length(4, '\0');
    qToLittleEndian(static_cast<quint32>(meta.size()), length.data());
    QFile bytes{file};
    const QByteArray all = QByteArray(128, '\0') + "DICM" + element(0, "UL", length) + meta + dataSet;
    if (!bytes.open(QIODevice::WriteOnly) || bytes.write(all) != all.size())
        throw std::runtime_error{"cannot write the file"};
}

QByteArray dataSetOf(const QString& file) {
    DcmMetaInfo meta;
    check(meta.loadFile(qPrintable(file)));
    Uint32 groupLength = 0;
    check(meta.findAndGetUint32(DCM_FileMetaInformationGroupLength, groupLength));
    constexpr qint64 PreambleAndGroupLength = 128 + 4 + 12;
    QFile bytes{file};
    if (!bytes.open(QIODevice::ReadOnly) || !bytes.seek(PreambleAndGroupLength + groupLength))
        throw std::runtime_error{"cannot read the data set"};
    return bytes.readAll();
}

E_TransferSyntax syntaxOf(const QString& file) {
    DcmFileFormat object;
    loadFile(object, file);
    return object.getDataset()->getOriginalXfer();
}

QByteArray pixelsOf(const QString& file) {
    needCodecs();
    DcmFileFormat object;
    loadFile(object, file);
    DcmDataset& set = *object.getDataset();
    check(set.chooseRepresentation(EXS_LittleEndianExplicit, nullptr));
    const Uint16* pixels = nullptr;
    unsigned long count = 0;
    check(set.findAndGetUint16Array(DCM_PixelData, pixels, &count));
    return {reinterpret_cast<const char*>(pixels), static_cast<qsizetype>(count * sizeof *pixels)};
}

}  // namespace tessaly::test
