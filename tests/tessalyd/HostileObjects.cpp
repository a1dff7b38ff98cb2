#include "tests/tessalyd/HostileObjects.h"

#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <QByteArray>
#include <cstdint>

#include "tests/tessalyd/Encapsulated.h"

namespace tessaly::test {

namespace {

using Bytes = std::vector<char>;

void append(Bytes& target, const QByteArray& bytes) {
    target.insert(target.end(), bytes.begin(), bytes.end());
}

template <class Number>
void appendNumber(Bytes& target, Number value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
        target.push_back(static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i)));
}

/// Of an element of the explicit syntaxes whose length has two bytes.
void appendShort(Bytes& target, std::uint16_t group, std::uint16_t element, const char* vr,
                 const std::string& value) {
    appendNumber(target, group);
    appendNumber(target, element);
    target.insert(target.end(), vr, vr + 2);
    appendNumber(target, static_cast<std::uint16_t>(value.size()));
    target.insert(target.end(), value.begin(), value.end());
}

HostileObject encoded(const char* kind, E_TransferSyntax syntax, const ImageSpec& image,
                      const QByteArrayList& fragments) {
    const QByteArray bytes = encapsulated(image, fragments);
    return {
        .kind = kind, .transferSyntax = DcmXfer{syntax}.getXferID(), .dataSet = {bytes.begin(), bytes.end()}};
}

/// The elements that the tables want, in explicit little endian, without pixels.
Bytes headerOf(const std::string& instance) {
    const QByteArray bytes = encapsulated({.object = {.instance = instance}}, {});
    return {bytes.begin(), bytes.end()};
}

}  // namespace

std::vector<HostileObject> objectsAgainstDecoders(const std::string& instance) {
    const ImageSpec small{.object = {.instance = instance}};
    const auto frame = [&small](E_TransferSyntax syntax) {
        return QByteArrayList{encodedFrame(small, framePixels(small), syntax)};
    };
    ImageSpec large = small;
    large.rows = large.columns = 512;
    ImageSpec huge = small;
    huge.rows = huge.columns = 65535;
    ImageSpec three = small;
    three.frames = std::string{"3"};
    ImageSpec many = small;
    const QByteArray flat = manyLargeFrames(many);
    const QByteArrayList jpeg = frame(EXS_JPEGProcess14SV1);
    return {
        {.kind = "257 frames of 4096 x 4096",
         .transferSyntax = UID_JPEGLSLosslessTransferSyntax,
         .dataSet = {flat.begin(), flat.end()}},
        encoded("RLE of less than the image", EXS_RLELossless, large, frame(EXS_RLELossless)),
        encoded("a JPEG stream without end", EXS_JPEGProcess14SV1, small, {endlessJpeg()}),
        encoded("JPEG-LS of less than the image", EXS_JPEGLSLossless, huge, frame(EXS_JPEGLSLossless)),
        encoded("JPEG of less than the image", EXS_JPEGProcess14SV1, huge, jpeg),
        encoded("RLE of a huge image", EXS_RLELossless, huge, frame(EXS_RLELossless)),
        encoded("more fragments than frames", EXS_JPEGProcess14SV1, small, jpeg + jpeg + jpeg + jpeg + jpeg),
        encoded("more frames than fragments", EXS_JPEGProcess14SV1, three, jpeg),
    };
}

std::vector<HostileObject> objectsAgainstReaders(const std::string& instance) {
    constexpr std::uint16_t PrivateGroup = 0x0009;
    const std::string plain = UID_LittleEndianExplicitTransferSyntax;
    HostileObject descending{.kind = "elements in descending order", .transferSyntax = plain, .dataSet = {}};
    for (std::uint16_t element = 0xffff; element > 0xffff - 40000; --element)
        appendShort(descending.dataSet, PrivateGroup, element, "LO", {});
    HostileObject items{.kind = "a header of empty items", .transferSyntax = plain, .dataSet = {}};
    append(items.dataSet, QByteArray::fromHex("080040115351"
                                              "0000"
                                              "ffffffff"));
    constexpr int Items = 60 << 20 >> 3;
    items.dataSet.reserve(items.dataSet.size() + (std::size_t{Items} << 3U));
    for (int i = 0; i < Items; ++i)
        append(items.dataSet, QByteArray::fromHex("feff00e000000000"));
    append(items.dataSet, QByteArray::fromHex("feffdde000000000"));
    for (HostileObject* object : {&descending, &items}) {
        const Bytes rest = headerOf(instance);
        object->dataSet.insert(object->dataSet.end(), rest.begin(), rest.end());
    }
    return {std::move(descending), std::move(items)};
}

std::vector<char> identifierWithModalities(int count) {
    std::string values = "CT";
    for (int i = 1; i < count; ++i)
        values += "\\M" + std::to_string(i % 10);
    if (values.size() % 2 != 0)
        values += ' ';
    // Implicit little endian: lengths of four bytes for all.
    Bytes bytes;
    const auto add = [&bytes](std::uint16_t group, std::uint16_t element, const std::string& value) {
        appendNumber(bytes, group);
        appendNumber(bytes, element);
        appendNumber(bytes, static_cast<std::uint32_t>(value.size()));
        bytes.insert(bytes.end(), value.begin(), value.end());
    };
    add(0x0008, 0x0052, "STUDY ");
    add(0x0008, 0x0061, values);
    return bytes;
}

}  // namespace tessaly::test
