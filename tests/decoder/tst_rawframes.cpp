#include <dcmtk/dcmdata/dcdeftag.h>

#include <QTest>
#include <QtEndian>

#include "decoder/PixelWriter.h"
#include "tests/decoder/Converted.h"
#include "tests/tessalyd/Deflated.h"
#include "tests/tessalyd/Encapsulated.h"

using namespace tessaly;
using namespace tessaly::test;

namespace {

const dicom::TransferSyntax Uncompressed{std::string_view{"1.2.840.10008.1.2.1.98"}};
const dicom::TransferSyntax DeflatedFrames{std::string_view{"1.2.840.10008.1.2.8.1"}};
const dicom::TransferSyntax Deflated{EXS_DeflatedLittleEndianExplicit};
const dicom::TransferSyntax Native{EXS_LittleEndianExplicit};

QByteArray someBytes(qsizetype size, int seed) {
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 37 + qsizetype{seed} * 11 + i / 5);
    return bytes;
}

/// The first bits of each frame, one behind the other.
QByteArray joinedBits(const QByteArrayList& frames, qsizetype bits) {
    QByteArray joined;
    qsizetype at = 0;
    for (const QByteArray& frame : frames) {
        for (qsizetype i = 0; i < bits; ++i, ++at) {
            if (at % 8 == 0)
                joined.append('\0');
            if ((frame[i / 8] >> (i % 8) & 1) != 0)
                joined[at / 8] = static_cast<char>(joined[at / 8] | 1 << (at % 8));
        }
    }
    return joined.size() % 2 == 0 ? joined : joined.append('\0');
}

/// The bytes of native pixel data as they were written.
QByteArray endOf(const QByteArray& object, qsizetype size) {
    return object.right(size);
}

}  // namespace

/// Frames that are there as they are natively, or deflated, and data sets that are.
class RawFramesTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void framesComeAsTheyAre_data();
    void framesComeAsTheyAre();
    void framesOfBitsShareTheirBytes_data();
    void framesOfBitsShareTheirBytes();
    void whatIsNotTheHeadersImageIsNotDecoded_data();
    void whatIsNotTheHeadersImageIsNotDecoded();
    void aDeflatedDataSetIsConverted_data();
    void aDeflatedDataSetIsConverted();
    void whatCannotBeInflatedIsNotConverted();
};

void RawFramesTest::framesComeAsTheyAre_data() {
    QTest::addColumn<int>("samples");
    QTest::addColumn<int>("bits");
    QTest::addColumn<int>("columns");
    QTest::addColumn<int>("frames");
    QTest::addColumn<int>("entry");
    for (const int bits : {8, 16, 32})
        QTest::addRow("%d bits", bits) << 1 << bits << 64 << 1 << 0;
    QTest::newRow("colour") << 3 << 8 << 64 << 1 << 0;
    QTest::newRow("frames") << 1 << 16 << 64 << 4 << 0;
    QTest::newRow("odd frames") << 1 << 8 << 61 << 3 << 0;
    QTest::newRow("frames in parts with a table") << 1 << 16 << 64 << 3 << 4;
    QTest::newRow("frames in parts with an extended table") << 1 << 16 << 64 << 3 << 8;
}

void RawFramesTest::framesComeAsTheyAre() {
    QFETCH(const int, samples);
    QFETCH(const int, bits);
    QFETCH(const int, columns);
    QFETCH(const int, frames);
    QFETCH(const int, entry);
    ImageSpec image{.rows = 33,
                    .columns = columns,
                    .samples = samples,
                    .bits = bits,
                    .stored = bits,
                    .photometric = samples == 3 ? "RGB" : "MONOCHROME2"};
    image.frames = std::to_string(frames);
    for (const dicom::TransferSyntax syntax : {Uncompressed, DeflatedFrames}) {
        QByteArray expected;
        QList<QByteArrayList> parts;
        QByteArrayList fragments;
        for (int i = 0; i < frames; ++i) {
            const QByteArray frame = someBytes(image.frameSize(), i);
            expected += frame;
            const QByteArray coded = syntax == Uncompressed ? frame : deflated(frame);
            parts << (entry == 0 ? QByteArrayList{coded} : inParts(coded, 10, 200));
            fragments << parts.last();
        }
        image.extendedOffsets = entry == 8 ? tableOf(parts, entry) : QByteArray{};
        expected.append(QByteArray(expected.size() % 2, '\0'));
        const QByteArray object = encapsulated(image, fragments, entry == 4 ? tableOf(parts) : QByteArray{});
        const auto made = converted(object, syntax);
        QVERIFY2(made, syntax.name());
        QVERIFY(endOf(*made, expected.size()) == expected);
        const auto swapped = converted(object, syntax, EXS_BigEndianExplicit);
        QVERIFY(swapped);
        QByteArray words = expected;
        for (qsizetype i = 0; i < words.size(); ++i)
            words[i] = expected[i ^ 1];
        QVERIFY(endOf(*swapped, words.size()) == words);
    }
}

void RawFramesTest::framesOfBitsShareTheirBytes_data() {
    QTest::addColumn<int>("columns");
    QTest::addColumn<int>("frames");
    QTest::newRow("a frame of whole bytes") << 16 << 1;
    QTest::newRow("a frame of 15 bits") << 5 << 1;
    QTest::newRow("frames of whole bytes") << 16 << 5;
    QTest::newRow("frames of 15 bits") << 5 << 9;
    QTest::newRow("frames of 3 bits") << 1 << 20;
    QTest::newRow("frames of 201 bits") << 67 << 7;
}

void RawFramesTest::framesOfBitsShareTheirBytes() {
    QFETCH(const int, columns);
    QFETCH(const int, frames);
    const ImageSpec image{
        .rows = 3, .columns = columns, .bits = 1, .stored = 1, .frames = std::to_string(frames)};
    QByteArrayList plain;
    QByteArrayList coded;
    for (int i = 0; i < frames; ++i) {
        plain << someBytes(image.frameSize(), i);
        coded << deflated(plain.last());
    }
    const QByteArray expected = joinedBits(plain, qsizetype{3} * columns);
    for (const auto& [syntax, fragments] :
         {std::pair{Uncompressed, plain}, std::pair{DeflatedFrames, coded}}) {
        const auto made = converted(encapsulated(image, fragments), syntax);
        QVERIFY2(made, syntax.name());
        QVERIFY(pixelsIn(*parsed(*made, EXS_LittleEndianExplicit)) == expected);
    }
}

void RawFramesTest::whatIsNotTheHeadersImageIsNotDecoded_data() {
    QTest::addColumn<QByteArray>("object");
    QTest::addColumn<bool>("isDeflated");
    const ImageSpec image{.bits = 8, .stored = 8};
    const QByteArray frame = someBytes(image.frameSize(), 1);
    const QByteArray coded = deflated(frame);
    QTest::newRow("a byte too few") << encapsulated(image, {frame.chopped(2)}) << false;
    QTest::newRow("bytes too many") << encapsulated(image, {frame + "xx"}) << false;
    QTest::newRow("nothing") << encapsulated(image, {QByteArray{}}) << false;
    QTest::newRow("no fragment") << encapsulated(image, {}) << false;
    QTest::newRow("deflated, a byte too few") << encapsulated(image, {deflated(frame.chopped(1))}) << true;
    QTest::newRow("deflated, a byte too many") << encapsulated(image, {deflated(frame + 'x')}) << true;
    QTest::newRow("deflated, cut off") << encapsulated(image, {coded.chopped(4)}) << true;
    QTest::newRow("deflated, another coding") << encapsulated(image, {frame}) << true;
    QTest::newRow("deflated, without end")
        << encapsulated(image, {deflated(QByteArray(1 << 24, '\0'))}) << true;
    const ImageSpec huge{.rows = 65535, .columns = 65535, .bits = 8, .stored = 8};
    QTest::newRow("deflated, under the largest image") << encapsulated(huge, {coded}) << true;
}

void RawFramesTest::whatIsNotTheHeadersImageIsNotDecoded() {
    QFETCH(const QByteArray, object);
    QFETCH(const bool, isDeflated);
    QVERIFY(!converted(object, isDeflated ? DeflatedFrames : Uncompressed));
}

void RawFramesTest::aDeflatedDataSetIsConverted_data() {
    QTest::addColumn<int>("to");
    for (const int to : {EXS_LittleEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit})
        QTest::newRow(DcmXfer{static_cast<E_TransferSyntax>(to)}.getXferName()) << to;
}

void RawFramesTest::aDeflatedDataSetIsConverted() {
    QFETCH(const int, to);
    const dicom::TransferSyntax target{static_cast<E_TransferSyntax>(to)};
    const auto made = converted(dataSetIn(Deflated, {}), Deflated, target);
    QVERIFY(made);
    QVERIFY(*made == dataSetIn(target, {}));
}

void RawFramesTest::whatCannotBeInflatedIsNotConverted() {
    const QByteArray plain = dataSetIn(Native, {});
    QVERIFY(!converted(plain, Deflated));
    QVERIFY(!converted(deflated(plain).chopped(20), Deflated));
    QVERIFY(!converted(deflated(plain.chopped(20)), Deflated));
    QVERIFY(!converted(deflated("no data set"), Deflated));
}

QTEST_GUILESS_MAIN(RawFramesTest)
#include "tst_rawframes.moc"
