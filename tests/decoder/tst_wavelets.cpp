#include <dcmtk/dcmdata/dcdeftag.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>
#include <algorithm>

#include "tests/decoder/Converted.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/Jpeg2000Encoder.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const dicom::TransferSyntax Lossless{EXS_JPEG2000LosslessOnly};
const dicom::TransferSyntax Lossy{EXS_JPEG2000};
const dicom::TransferSyntax HighThroughput{std::string_view{"1.2.840.10008.1.2.4.201"}};

const ImageSpec Byte{.bits = 8, .stored = 8};
const ImageSpec Colour{.samples = 3, .bits = 8, .stored = 8, .photometric = "RGB"};

/// As framePixels, and half of them below zero where the image is of signed ones.
QByteArray pixelsOf(const ImageSpec& image, int seed = 1) {
    QByteArray pixels = framePixels(image, seed);
    if (image.representation == 0)
        return pixels;
    const int half = 1 << (image.stored - 1);
    for (qsizetype i = 0; i < pixels.size() * 8 / image.bits; ++i) {
        if (image.bits == 8)
            pixels[i] = static_cast<char>(static_cast<unsigned char>(pixels[i]) - half);
        else
            qToLittleEndian(static_cast<qint16>(qFromLittleEndian<quint16>(pixels.data() + 2 * i) - half),
                            pixels.data() + 2 * i);
    }
    return pixels;
}

/// What is not smooth all over looks more like an image to a lossy coder.
QByteArray smoothPixels(const ImageSpec& image) {
    QByteArray pixels(image.frameSize(), '\0');
    for (qsizetype i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<char>(i / image.samples % image.columns * 2 + i % image.samples * 20);
    return pixels;
}

int largestDifference(const QByteArray& one, const QByteArray& other) {
    int largest = one.size() == other.size() ? 0 : 1000;
    for (qsizetype i = 0; i < std::min(one.size(), other.size()); ++i)
        largest = std::max(
            largest, std::abs(static_cast<unsigned char>(one[i]) - static_cast<unsigned char>(other[i])));
    return largest;
}

QByteArray contents(const QString& path) {
    QFile file{path};
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error{"no file " + path.toStdString()};
    return file.readAll();
}

void write(const QString& path, const QByteArray& bytes) {
    QFile file{path};
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        throw std::runtime_error{"cannot write " + path.toStdString()};
}

std::string photometricOf(DcmDataset& set) {
    OFString value;
    set.findAndGetOFString(DCM_PhotometricInterpretation, value);
    return value;
}

}  // namespace

/// JPEG 2000 with both block coders, without the decoder's process.
class WaveletsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void whatIsLosslessComesBack_data();
    void whatIsLosslessComesBack();
    void theLibrarysToolDecodesTheSame_data();
    void theLibrarysToolDecodesTheSame();
    void highThroughputIsDecodedAsItsToolDoes_data();
    void highThroughputIsDecodedAsItsToolDoes();
    void luminanceAndDifferencesBecomeColours();
    void framesComeInAnyFragments_data();
    void framesComeInAnyFragments();
    void anotherProductsObjectsAreDecoded_data();
    void anotherProductsObjectsAreDecoded();

  private:
    QTemporaryDir folder_;
};

void WaveletsTest::whatIsLosslessComesBack_data() {
    QTest::addColumn<int>("samples");
    QTest::addColumn<int>("stored");
    QTest::addColumn<int>("representation");
    QTest::addColumn<QByteArray>("photometric");
    QTest::addColumn<int>("tile");
    for (int stored = 1; stored <= 16; ++stored)
        QTest::addRow("grey, %d bits", stored) << 1 << stored << 0 << QByteArray{"MONOCHROME2"} << 0;
    for (const int stored : {2, 8, 12, 16})
        QTest::addRow("signed, %d bits", stored) << 1 << stored << 1 << QByteArray{"MONOCHROME2"} << 0;
    QTest::newRow("inverted") << 1 << 8 << 0 << QByteArray{"MONOCHROME1"} << 0;
    QTest::newRow("palette") << 1 << 8 << 0 << QByteArray{"PALETTE COLOR"} << 0;
    QTest::newRow("palette of 16 bits") << 1 << 16 << 0 << QByteArray{"PALETTE COLOR"} << 0;
    QTest::newRow("colour") << 3 << 8 << 0 << QByteArray{"RGB"} << 0;
    QTest::newRow("colour, transformed") << 3 << 8 << 0 << QByteArray{"YBR_RCT"} << 0;
    QTest::newRow("colour of 12 bits, transformed") << 3 << 12 << 0 << QByteArray{"YBR_RCT"} << 0;
    QTest::newRow("tiles") << 1 << 12 << 0 << QByteArray{"MONOCHROME2"} << 20;
    QTest::newRow("tiles of colour") << 3 << 8 << 0 << QByteArray{"YBR_RCT"} << 40;
}

void WaveletsTest::whatIsLosslessComesBack() {
    QFETCH(const int, samples);
    QFETCH(const int, stored);
    QFETCH(const int, representation);
    QFETCH(const QByteArray, photometric);
    QFETCH(const int, tile);
    const ImageSpec image{.rows = 61,
                          .columns = 67,
                          .samples = samples,
                          .bits = stored > 8 ? 16 : 8,
                          .stored = stored,
                          .photometric = photometric.toStdString(),
                          .planar = samples == 3 ? 1 : 0,
                          .representation = representation};
    const QByteArray pixels = pixelsOf(image);
    const QByteArray stream = waveletFrame(
        image, pixels,
        {.isSigned = representation == 1, .transform = photometric.startsWith("YBR"), .tile = tile});
    for (const dicom::TransferSyntax syntax : {Lossless, Lossy}) {
        const auto made = converted(encapsulated(image, {stream}), syntax);
        QVERIFY(made);
        const auto set = parsed(*made, EXS_LittleEndianExplicit);
        QVERIFY(pixelsIn(*set).left(pixels.size()) == pixels);
        QCOMPARE(photometricOf(*set), photometric == "YBR_RCT" ? "RGB" : photometric.toStdString());
        Uint16 planar = 0;
        set->findAndGetUint16(DCM_PlanarConfiguration, planar);
        QCOMPARE(planar, Uint16{0});
    }
}

void WaveletsTest::theLibrarysToolDecodesTheSame_data() {
    QTest::addColumn<int>("samples");
    QTest::addColumn<bool>("transform");
    QTest::newRow("grey") << 1 << false;
    QTest::newRow("colour") << 3 << false;
    QTest::newRow("colour, transformed") << 3 << true;
}

void WaveletsTest::theLibrarysToolDecodesTheSame() {
    QFETCH(const int, samples);
    QFETCH(const bool, transform);
    ImageSpec image = samples == 3 ? Colour : Byte;
    image.photometric = transform ? "YBR_ICT" : image.photometric;
    const QByteArray pixels = framePixels(image);
    const QByteArray stream = waveletFrame(image, pixels, {.transform = transform, .lossy = true});
    write(folder_.filePath(u"one.j2k"_s), stream);
    const QString decoded = folder_.filePath(samples == 3 ? u"one.ppm"_s : u"one.pgm"_s);
    const Outcome tool =
        run(u"opj_decompress"_s, {u"-i"_s, folder_.filePath(u"one.j2k"_s), u"-o"_s, decoded});
    QVERIFY2(tool.exitCode == 0, qPrintable(tool.output));
    const auto made = converted(encapsulated(image, {stream}), Lossy);
    QVERIFY(made);
    const auto set = parsed(*made, EXS_LittleEndianExplicit);
    QVERIFY(pixelsIn(*set) == contents(decoded).right(pixels.size()));
    QVERIFY(pixelsIn(*set) != pixels);  // or nothing was lossy
    QCOMPARE(photometricOf(*set), transform ? "RGB" : image.photometric);
}

void WaveletsTest::highThroughputIsDecodedAsItsToolDoes_data() {
    QTest::addColumn<int>("samples");
    QTest::addColumn<int>("stored");
    QTest::addColumn<bool>("reversible");
    QTest::newRow("grey") << 1 << 8 << true;
    QTest::newRow("16 bits") << 1 << 16 << true;
    QTest::newRow("colour") << 3 << 8 << true;
    QTest::newRow("grey, lossy") << 1 << 8 << false;
    QTest::newRow("colour, lossy") << 3 << 8 << false;
}

/// The coder is another product's, and so is the decoder that ours is compared with.
void WaveletsTest::highThroughputIsDecodedAsItsToolDoes() {
    QFETCH(const int, samples);
    QFETCH(const int, stored);
    QFETCH(const bool, reversible);
    const ImageSpec image{.samples = samples,
                          .bits = stored > 8 ? 16 : 8,
                          .stored = stored,
                          .photometric = samples == 1 ? "MONOCHROME2"
                                         : reversible ? "YBR_RCT"
                                                      : "YBR_ICT"};
    const QByteArray pixels = stored > 8 ? framePixels(image) : smoothPixels(image);
    QByteArray bigEndian = pixels;  // as these files have their words
    for (qsizetype i = 0; stored > 8 && i < pixels.size(); ++i)
        bigEndian[i] = pixels[i ^ 1];
    const QString kind = samples == 3 ? u"ppm"_s : u"pgm"_s;
    const auto path = [&](const QString& name) { return folder_.filePath(name); };
    write(path(u"in."_s + kind), QByteArray{samples == 3 ? "P6" : "P5"} + "\n64 64\n" +
                                     QByteArray::number((1 << stored) - 1) + '\n' + bigEndian);
    QStringList options{u"-i"_s,          path(u"in."_s + kind),
                        u"-o"_s,          path(u"one.j2c"_s),
                        u"-reversible"_s, reversible ? u"true"_s : u"false"_s};
    if (!reversible)
        options << u"-qstep"_s << u"0.01"_s;
    const Outcome coder = run(u"ojph_compress"_s, options);
    QVERIFY2(coder.exitCode == 0, qPrintable(coder.output));
    const Outcome tool =
        run(u"ojph_expand"_s, {u"-i"_s, path(u"one.j2c"_s), u"-o"_s, path(u"out."_s + kind)});
    QVERIFY2(tool.exitCode == 0, qPrintable(tool.output));
    const auto made = converted(encapsulated(image, {contents(path(u"one.j2c"_s))}), HighThroughput);
    QVERIFY(made);
    const auto set = parsed(*made, EXS_LittleEndianExplicit);
    if (reversible)
        QVERIFY(pixelsIn(*set) == pixels);
    else  // the two round differently
        QCOMPARE_LE(largestDifference(pixelsIn(*set), contents(path(u"out."_s + kind)).right(pixels.size())),
                    1);
    QCOMPARE(photometricOf(*set), std::string{samples == 3 ? "RGB" : "MONOCHROME2"});
}

void WaveletsTest::luminanceAndDifferencesBecomeColours() {
    ImageSpec image = Colour;
    image.rows = 2;
    image.columns = 4;
    image.photometric = "YBR_FULL";
    const QByteArray coded = QByteArray::fromHex(
        "008080"
        "ff8080"
        "4c55ff"
        "962c15"
        "1dff6b"
        "808080"
        "e10094"
        "b2ab00");
    const QByteArray expected = QByteArray::fromHex(
        "000000"
        "ffffff"
        "fe0000"
        "00ff01"
        "0000fe"
        "808080"
        "fdfe00"
        "00ffff");
    const auto made = converted(encapsulated(image, {waveletFrame(image, coded)}), Lossless);
    QVERIFY(made);
    const auto set = parsed(*made, EXS_LittleEndianExplicit);
    QCOMPARE(photometricOf(*set), std::string{"RGB"});
    QCOMPARE_LE(largestDifference(pixelsIn(*set), expected), 1);
}

void WaveletsTest::framesComeInAnyFragments_data() {
    QTest::addColumn<int>("frames");
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("entry");
    QTest::newRow("a frame in parts") << 1 << 100 << 0;
    QTest::newRow("split within its header") << 1 << 2 << 0;
    QTest::newRow("frames") << 3 << 1 << 0;
    QTest::newRow("frames with a table") << 3 << 1 << 4;
    QTest::newRow("frames with an extended table") << 3 << 1 << 8;
    QTest::newRow("frames in parts") << 3 << 8 << 0;
    QTest::newRow("frames in parts with a table") << 3 << 8 << 4;
    QTest::newRow("frames in parts with an extended table") << 3 << 8 << 8;
}

void WaveletsTest::framesComeInAnyFragments() {
    QFETCH(const int, frames);
    QFETCH(const int, first);
    QFETCH(const int, entry);
    ImageSpec image = Byte;
    QByteArray expected;
    QList<QByteArrayList> parts;
    QByteArrayList fragments;
    for (int i = 0; i < frames; ++i) {
        const QByteArray frame = waveletFrame(image, framePixels(image, i));
        expected += framePixels(image, i);
        parts << (first == 1 ? QByteArrayList{frame} : inParts(frame, first, 500));
        fragments << parts.last();
    }
    if (frames > 1)
        image.frames = std::to_string(frames);
    if (entry == 8)
        image.extendedOffsets = tableOf(parts, entry);
    const auto made =
        converted(encapsulated(image, fragments, entry == 4 ? tableOf(parts) : QByteArray{}), Lossless);
    QVERIFY(made);
    const auto set = parsed(*made, EXS_LittleEndianExplicit);
    QVERIFY(pixelsIn(*set) == expected);
    QVERIFY(!set->tagExists(DcmTagKey{0x7fe0, 0x0001}));
}

void WaveletsTest::anotherProductsObjectsAreDecoded_data() {
    QTest::addColumn<int>("samples");
    QTest::addColumn<int>("stored");
    QTest::addColumn<int>("representation");
    QTest::newRow("grey") << 1 << 8 << 0;
    QTest::newRow("12 bits") << 1 << 12 << 0;
    QTest::newRow("16 bits") << 1 << 16 << 0;
    QTest::newRow("16 bits, signed") << 1 << 16 << 1;
    QTest::newRow("colour") << 3 << 8 << 0;
}

/// Coded and decoded by another product, from a native object and to one.
void WaveletsTest::anotherProductsObjectsAreDecoded() {
    QFETCH(const int, samples);
    QFETCH(const int, stored);
    QFETCH(const int, representation);
    const ImageSpec image{.samples = samples,
                          .bits = stored > 8 ? 16 : 8,
                          .stored = stored,
                          .photometric = samples == 3 ? "RGB" : "MONOCHROME2",
                          .representation = representation};
    const QByteArray pixels = pixelsOf(image);
    const auto object = nativeObject(image, pixels);
    const auto path = [this](const QString& name) { return folder_.filePath(name); };
    QVERIFY(object->saveFile(qPrintable(path(u"native.dcm"_s)), EXS_LittleEndianExplicit).good());
    const Outcome coded = run(u"gdcmconv"_s, {u"--j2k"_s, path(u"native.dcm"_s), path(u"coded.dcm"_s)});
    QVERIFY2(coded.exitCode == 0, qPrintable(coded.output));
    const Outcome decoded = run(u"gdcmconv"_s, {u"--raw"_s, path(u"coded.dcm"_s), path(u"decoded.dcm"_s)});
    QVERIFY2(decoded.exitCode == 0, qPrintable(decoded.output));
    const auto made = converted(dataSetOf(path(u"coded.dcm"_s)), Lossless);
    QVERIFY(made);
    const auto set = parsed(*made, EXS_LittleEndianExplicit);
    QVERIFY(pixelsIn(*set) == pixels);
    QVERIFY(pixelsIn(*set) == pixelsOf(path(u"decoded.dcm"_s)));
    QCOMPARE(photometricOf(*set), image.photometric);
}

QTEST_GUILESS_MAIN(WaveletsTest)
#include "tst_wavelets.moc"
