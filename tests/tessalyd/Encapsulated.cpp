#include "tests/tessalyd/Encapsulated.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>
#include <dcmtk/dcmimage/diregist.h>  // colours for the JPEG encoders

#include <QtEndian>
#include <stdexcept>

namespace tessaly::test {

namespace {

void check(const OFCondition& condition) {
    if (condition.bad())
        throw std::runtime_error{condition.text()};
}

std::unique_ptr<DcmFileFormat> header(const ImageSpec& image) {
    auto object = makeObject(image.object);
    DcmDataset& set = *object->getDataset();
    for (const auto& [tag, value] : {std::pair{DCM_Rows, image.rows},
                                     {DCM_Columns, image.columns},
                                     {DCM_SamplesPerPixel, image.samples},
                                     {DCM_BitsAllocated, image.bits},
                                     {DCM_BitsStored, image.stored},
                                     {DCM_HighBit, image.stored - 1},
                                     {DCM_PixelRepresentation, image.representation}})
        check(set.putAndInsertUint16(tag, static_cast<Uint16>(value)));
    if (image.samples > 1)
        check(set.putAndInsertUint16(DCM_PlanarConfiguration, static_cast<Uint16>(image.planar)));
    check(set.putAndInsertString(DCM_PhotometricInterpretation, image.photometric.c_str()));
    if (!image.frames.empty())
        check(set.putAndInsertString(DCM_NumberOfFrames, image.frames.c_str()));
    check(set.findAndDeleteElement(DCM_PixelData));
    return object;
}

QByteArray item(const char* tag, const QByteArray& content) {
    QByteArray length(4, '\0');
    qToLittleEndian(static_cast<quint32>(content.size()), length.data());
    return QByteArray::fromHex(tag) + length + content;
}

QByteArray even(QByteArray bytes) {
    return bytes.size() % 2 == 0 ? bytes : bytes.append('\0');
}

}  // namespace

QByteArray encapsulated(const ImageSpec& image, const QByteArrayList& fragments,
                        const QByteArray& offsetTable) {
    const auto object = header(image);
    DcmDataset& set = *object->getDataset();
    std::vector<char> bytes(std::size_t{1} << 16U);
    DcmOutputBufferStream out{bytes.data(), static_cast<offile_off_t>(bytes.size())};
    set.transferInit();
    check(set.write(out, EXS_LittleEndianExplicit, EET_ExplicitLength, nullptr));
    set.transferEnd();
    QByteArray data{bytes.data(), static_cast<qsizetype>(out.tell())};
    if (!image.extendedOffsets.isEmpty()) {
        QByteArray length(4, '\0');
        qToLittleEndian(static_cast<quint32>(image.extendedOffsets.size()), length.data());
        data += QByteArray::fromHex("e07f0100") + QByteArray{"OV\0\0", 4} + length + image.extendedOffsets;
    }
    data += QByteArray::fromHex("e07f1000") + "OB" + QByteArray::fromHex("0000ffffffff");
    data += item("feff00e0", offsetTable);
    for (const QByteArray& fragment : fragments)
        data += item("feff00e0", even(fragment));
    return data + item("feffdde0", {});
}

QByteArray framePixels(const ImageSpec& image, int seed) {
    QByteArray pixels(image.frameSize(), '\0');
    const int most = (1 << image.stored) - 1;
    const qsizetype count = image.frameSize() * 8 / image.bits;
    for (qsizetype i = 0; i < count; ++i) {
        const auto value = (i * 7 + i / image.columns * 13 + qsizetype{seed} * 101) & most;
        if (image.bits == 16)
            qToLittleEndian(static_cast<quint16>(value), pixels.data() + 2 * i);
        else
            pixels[i] = static_cast<char>(value);
    }
    return pixels;
}

QByteArray flatPixels(const ImageSpec& image, int value) {
    return {image.frameSize(), static_cast<char>(value)};
}

std::unique_ptr<DcmFileFormat> nativeObject(const ImageSpec& image, const QByteArray& pixels) {
    auto object = header(image);
    DcmDataset& set = *object->getDataset();
    const QByteArray padded = even(pixels);
    if (image.bits == 16) {
        std::vector<Uint16> words(static_cast<std::size_t>(padded.size() / 2));
        qFromLittleEndian<quint16>(padded.constData(), padded.size() / 2, words.data());
        check(set.putAndInsertUint16Array(DCM_PixelData, words.data(), words.size()));
    } else {
        check(set.putAndInsertUint8Array(DCM_PixelData, reinterpret_cast<const Uint8*>(padded.constData()),
                                         static_cast<unsigned long>(padded.size())));
    }
    return object;
}

QByteArray encodedFrame(const ImageSpec& image, const QByteArray& pixels, E_TransferSyntax syntax) {
    needCodecs();
    const auto object = nativeObject(image, pixels);
    DcmDataset& set = *object->getDataset();
    check(set.chooseRepresentation(syntax, nullptr));
    DcmElement* element = nullptr;
    check(set.findAndGetElement(DCM_PixelData, element));
    DcmPixelSequence* sequence = nullptr;
    E_TransferSyntax key = EXS_Unknown;
    const DcmRepresentationParameter* parameter = nullptr;
    auto& data = dynamic_cast<DcmPixelData&>(*element);
    data.getOriginalRepresentationKey(key, parameter);
    check(data.getEncapsulatedRepresentation(syntax, nullptr, sequence));
    DcmPixelItem* part = nullptr;
    Uint8* bytes = nullptr;
    if (sequence->card() != 2)
        throw std::runtime_error{"not one fragment"};
    check(sequence->getItem(part, 1));
    check(part->getUint8Array(bytes));
    return {reinterpret_cast<const char*>(bytes), static_cast<qsizetype>(part->getLength())};
}

QByteArray decodedFrame(const ImageSpec& image, const QByteArray& frame, E_TransferSyntax syntax) {
    needCodecs();
    const auto object = header(image);
    DcmDataset& set = *object->getDataset();
    auto sequence = std::make_unique<DcmPixelSequence>(DcmTag{DCM_PixelData, EVR_OB});
    for (const QByteArray& content : {QByteArray{}, even(frame)}) {
        auto part = std::make_unique<DcmPixelItem>(DcmTag{DCM_Item, EVR_OB});
        if (!content.isEmpty())
            check(part->putUint8Array(reinterpret_cast<const Uint8*>(content.constData()),
                                      static_cast<unsigned long>(content.size())));
        check(sequence->insert(part.release()));
    }
    auto pixels = std::make_unique<DcmPixelData>(DcmTag{DCM_PixelData, EVR_OB});
    pixels->putOriginalRepresentation(syntax, nullptr, sequence.release());
    check(set.insert(pixels.release()));
    check(set.chooseRepresentation(EXS_LittleEndianExplicit, nullptr));
    const Uint16* words = nullptr;
    unsigned long count = 0;
    check(set.findAndGetUint16Array(DCM_PixelData, words, &count));
    return QByteArray{reinterpret_cast<const char*>(words), static_cast<qsizetype>(count * sizeof *words)}
        .left(image.frameSize());
}

QByteArrayList inParts(const QByteArray& frame, int first, int others) {
    QByteArrayList parts{frame.left(first)};
    for (qsizetype at = first; at < frame.size(); at += others)
        parts << frame.mid(at, others);
    return parts;
}

QByteArray endlessJpeg() {
    return QByteArray::fromHex("ffd8ff01") + QByteArray(334, '\0');
}

QByteArray manyLargeFrames(ImageSpec& image, int frames) {
    image.rows = 4096;
    image.columns = 4096;
    image.bits = 8;
    image.stored = 8;
    const QByteArray frame = encodedFrame(image, flatPixels(image), EXS_JPEGLSLossless);
    image.frames = std::to_string(frames);
    return encapsulated(image, QByteArrayList(frames, frame));
}

}  // namespace tessaly::test
