#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcsequen.h>

#include <QTest>
#include <QtEndian>

#include "decoder/FrameDecoder.h"
#include "decoder/JpegStream.h"
#include "decoder/RunLength.h"
#include "tests/decoder/Converted.h"
#include "tests/tessalyd/Encapsulated.h"

using namespace tessaly;
using namespace tessaly::test;

namespace {

QByteArray written(DcmDataset& set, E_TransferSyntax syntax) {
    QByteArray bytes(1 << 20, '\0');
    DcmOutputBufferStream out{bytes.data(), bytes.size()};
    set.transferInit();
    if (set.write(out, syntax, EET_ExplicitLength, nullptr).bad())
        throw std::runtime_error{"cannot be written"};
    set.transferEnd();
    return bytes.left(static_cast<qsizetype>(out.tell()));
}

/// The most that this process has had of it, in kilobytes, touched or not.
long long peakOfAddressSpace() {
    QFile status{QStringLiteral("/proc/self/status")};
    if (!status.open(QIODevice::ReadOnly))
        throw std::runtime_error{"no status"};
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmPeak:"))
            return line.mid(7).trimmed().split(' ').front().toLongLong();
    throw std::runtime_error{"no VmPeak"};
}

const ImageSpec Byte{.bits = 8, .stored = 8};

}  // namespace

/// What a decoder makes of an object, without its process.
class DecodingTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase();
    void framesComeInAnyFragments_data();
    void framesComeInAnyFragments();
    void coloursAreDecodedAsTheToolkitDoes_data();
    void coloursAreDecodedAsTheToolkitDoes();
    void eightBitsInSixteenAreWidened();
    void anOddFrameIsPadded();
    void whatIsNotTheHeadersImageIsNotDecoded_data();
    void whatIsNotTheHeadersImageIsNotDecoded();
    void aShortRunLengthFrameLeavesNothingUnwritten();
    void streamsAreWalkedToTheirEnd_data();
    void streamsAreWalkedToTheirEnd();
    void anIconIsDecodedToo();
    void nativeObjectsAreConvertedAsTheToolkitDoes_data();
    void nativeObjectsAreConvertedAsTheToolkitDoes();
    void whatIsBehindThePixelsStaysThere();
    void anElementLongerThanTheObjectIsNotGivenToTheToolkit();
};

void DecodingTest::initTestCase() {
    needCodecs();
}

void DecodingTest::framesComeInAnyFragments_data() {
    QTest::addColumn<int>("syntax");
    QTest::addColumn<int>("frames");
    QTest::addColumn<int>("first");
    QTest::addColumn<bool>("table");
    for (const int syntax : {EXS_JPEGProcess1, EXS_JPEGProcess14SV1, EXS_JPEGLSLossless, EXS_RLELossless}) {
        const char* name = DcmXfer{static_cast<E_TransferSyntax>(syntax)}.getXferName();
        QTest::addRow("%s, a frame", name) << syntax << 1 << 1 << false;
        QTest::addRow("%s, a frame in parts", name) << syntax << 1 << 100 << false;
        QTest::addRow("%s, split within its header", name) << syntax << 1 << 8 << false;
        QTest::addRow("%s, split within its first marker", name) << syntax << 1 << 2 << false;
        QTest::addRow("%s, frames", name) << syntax << 3 << 1 << false;
        QTest::addRow("%s, frames with a table", name) << syntax << 3 << 1 << true;
        QTest::addRow("%s, frames in parts with a table", name) << syntax << 3 << 8 << true;
        if (syntax != EXS_RLELossless)
            QTest::addRow("%s, frames in parts", name) << syntax << 3 << 8 << false;
    }
}

void DecodingTest::framesComeInAnyFragments() {
    QFETCH(const int, syntax);
    QFETCH(const int, frames);
    QFETCH(const int, first);  // bytes of a frame's first fragment; 1: all are in one
    QFETCH(const bool, table);
    const auto from = static_cast<E_TransferSyntax>(syntax);
    ImageSpec image = Byte;
    QByteArray expected;
    QList<QByteArrayList> parts;
    QByteArrayList fragments;
    for (int i = 0; i < frames; ++i) {
        const QByteArray frame = encodedFrame(image, framePixels(image, i), from);
        expected += decodedFrame(image, frame, from);
        parts << (first == 1 ? QByteArrayList{frame} : inParts(frame, first, 500));
        fragments << parts.last();
    }
    if (frames > 1)
        image.frames = std::to_string(frames);
    const auto made = converted(encapsulated(image, fragments, table ? tableOf(parts) : QByteArray{}), from);
    QVERIFY(made);
    QVERIFY(pixelsIn(*parsed(*made, EXS_LittleEndianExplicit)) == expected);
    if (from != EXS_JPEGProcess1)
        QVERIFY(expected.startsWith(framePixels(image, 0)));
}

void DecodingTest::coloursAreDecodedAsTheToolkitDoes_data() {
    QTest::addColumn<int>("syntax");
    QTest::addColumn<int>("planar");
    for (const int syntax : {EXS_JPEGProcess1, EXS_JPEGProcess14SV1, EXS_JPEGLSLossless, EXS_RLELossless}) {
        const char* name = DcmXfer{static_cast<E_TransferSyntax>(syntax)}.getXferName();
        QTest::addRow("%s by pixel", name) << syntax << 0;
        QTest::addRow("%s by plane", name) << syntax << 1;
    }
}

void DecodingTest::coloursAreDecodedAsTheToolkitDoes() {
    QFETCH(const int, syntax);
    QFETCH(const int, planar);
    const auto from = static_cast<E_TransferSyntax>(syntax);
    ImageSpec image = Byte;
    image.samples = 3;
    image.photometric = "RGB";
    image.planar = planar;
    const QByteArray frame = encodedFrame(image, framePixels(image), from);
    // The toolkit's encoder turns the colours of the lossy one.
    image.photometric = from == EXS_JPEGProcess1 ? "YBR_FULL_422" : "RGB";
    const auto made = converted(encapsulated(image, {frame}), from);
    QVERIFY(made);
    const auto set = parsed(*made, EXS_LittleEndianExplicit);
    QVERIFY(pixelsIn(*set) == decodedFrame(image, frame, from));
    OFString photometric;
    QVERIFY(set->findAndGetOFString(DCM_PhotometricInterpretation, photometric).good());
    QCOMPARE(photometric.c_str(), "RGB");
}

void DecodingTest::eightBitsInSixteenAreWidened() {
    const QByteArray pixels = framePixels(Byte);
    const QByteArray frame = encodedFrame(Byte, pixels, EXS_JPEGLSLossless);
    const auto made = converted(encapsulated({.bits = 16, .stored = 8}, {frame}), EXS_JPEGLSLossless);
    QVERIFY(made);
    QByteArray expected;
    for (const char pixel : pixels)
        expected.append(pixel).append('\0');
    QVERIFY(pixelsIn(*parsed(*made, EXS_LittleEndianExplicit)) == expected);
}

void DecodingTest::anOddFrameIsPadded() {
    ImageSpec image = Byte;
    image.rows = 3;
    image.columns = 5;
    image.frames = std::string{"3"};
    QByteArrayList fragments;
    QByteArray expected;
    for (int i = 0; i < 3; ++i) {
        expected += framePixels(image, i);
        fragments << encodedFrame({.rows = 3, .columns = 5, .bits = 8, .stored = 8}, framePixels(image, i),
                                  EXS_JPEGLSLossless);
    }
    expected += '\0';
    for (const E_TransferSyntax to :
         {EXS_LittleEndianExplicit, EXS_LittleEndianImplicit, EXS_BigEndianExplicit}) {
        const auto made = converted(encapsulated(image, fragments), EXS_JPEGLSLossless, to);
        QVERIFY(made);
        QCOMPARE(pixelsIn(*parsed(*made, to)).toHex(), expected.toHex());
    }
}

void DecodingTest::whatIsNotTheHeadersImageIsNotDecoded_data() {
    QTest::addColumn<int>("syntax");
    QTest::addColumn<QByteArray>("object");
    const auto row = [](const char* name, int syntax, const QByteArray& object) {
        QTest::newRow(name) << syntax << object;
    };
    const ImageSpec small = Byte;
    const auto with = [&small](auto change) {
        ImageSpec image = small;
        change(image);
        return image;
    };
    for (const int syntax : {EXS_JPEGProcess14SV1, EXS_JPEGLSLossless, EXS_RLELossless}) {
        const QByteArray frame =
            encodedFrame(small, framePixels(small), static_cast<E_TransferSyntax>(syntax));
        const char* name = DcmXfer{static_cast<E_TransferSyntax>(syntax)}.getXferName();
        const auto named = [&](const char* fault, const QByteArray& object) {
            QTest::addRow("%s, %s", name, fault) << syntax << object;
        };
        named("more rows", encapsulated(with([](auto& i) { i.rows = 65; }), {frame}));
        named("more columns", encapsulated(with([](auto& i) { i.columns = 4096; }), {frame}));
        named("fewer rows", encapsulated(with([](auto& i) { i.rows = 63; }), {frame}));
        named("rows and columns turned", encapsulated(with([](auto& i) { i.rows = 32, i.columns = 128; }),
                                                      {syntax == EXS_RLELossless ? frame.left(500) : frame}));
        named("more samples", encapsulated(with([](auto& i) { i.samples = 3; }), {frame}));
        named("no rows", encapsulated(with([](auto& i) { i.rows = 0; }), {frame}));
        named("five frames that are said to be none", encapsulated(small, QByteArrayList(5, frame)));
        named("three announced, one there",
              encapsulated(with([](auto& i) { i.frames = std::string{"3"}; }), {frame}));
        named("two announced, three there",
              encapsulated(with([](auto& i) { i.frames = std::string{"2"}; }), QByteArrayList(3, frame)));
        named("no number of frames",
              encapsulated(with([](auto& i) { i.frames = std::string{"x"}; }), {frame}));
        named("no frames", encapsulated(with([](auto& i) { i.frames = std::string{"0"}; }), {frame}));
        named("more frames than 32 bits hold",
              encapsulated(with([](auto& i) { i.frames = std::string{"2147483647"}; }), {frame}));
        named("cut off", encapsulated(small, {frame.left(frame.size() / 2)}));
        named("nothing", encapsulated(small, {QByteArray{}}));
        named("no fragment", encapsulated(small, {}));
        named("no delimiter", encapsulated(small, {frame}).chopped(8));
        if (syntax != EXS_RLELossless) {
            named("no end of the image", encapsulated(small, {frame.left(frame.lastIndexOf("\xff\xd9"))}));
            named("something behind the end", encapsulated(small, {frame + "xyz"}));
        }
    }
    const ImageSpec wide{};
    row("a wider sample than is allocated", EXS_JPEGLSLossless,
        encapsulated(small, {encodedFrame(wide, framePixels(wide), EXS_JPEGLSLossless)}));
    row("a loop of markers", EXS_JPEGProcess14SV1, encapsulated(small, {endlessJpeg()}));
    ImageSpec huge = with([](auto& i) { i.rows = i.columns = 65535; });
    row("a small stream under the largest image", EXS_JPEGLSLossless,
        encapsulated(huge, {encodedFrame(small, framePixels(small), EXS_JPEGLSLossless)}));
}

void DecodingTest::whatIsNotTheHeadersImageIsNotDecoded() {
    QFETCH(const int, syntax);
    QFETCH(const QByteArray, object);
    QVERIFY(!converted(object, static_cast<E_TransferSyntax>(syntax)));
}

void DecodingTest::aShortRunLengthFrameLeavesNothingUnwritten() {
    const decoder::ImageDescription image{
        .rows = 64, .columns = 64, .samplesPerPixel = 1, .bitsAllocated = 16};
    const ImageSpec spec;
    const QByteArray frame = encodedFrame(spec, framePixels(spec), EXS_RLELossless);
    std::vector<unsigned char> target(std::size_t{64} * 64 * 2, 0xaa);
    QVERIFY(decoder::decodeRunLength(bytesOf(frame), image, target));
    QVERIFY(QByteArrayView(target) == framePixels(spec));
    for (qsizetype size = 0; size < frame.size() - 2; ++size)  // the last bytes may be what fills it up
        QVERIFY2(!decoder::decodeRunLength(bytesOf(frame.left(size)), image, target),
                 qPrintable(QString::number(size)));
}

void DecodingTest::streamsAreWalkedToTheirEnd_data() {
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<bool>("isWhole");
    const QByteArray begin = QByteArray::fromHex("ffd8");
    const QByteArray frame = QByteArray::fromHex("ffc0000b080040004001011100");
    const QByteArray scan = QByteArray::fromHex("ffda0008010100003f001234ff00ffd05678");
    const QByteArray end = QByteArray::fromHex("ffd9");
    const auto row = [](const char* name, const QByteArray& stream, bool isWhole) {
        QTest::newRow(name) << stream << isWhole;
    };
    const auto marker = [](const char* hex) { return QByteArray::fromHex(hex); };
    row("whole", begin + frame + scan + end, true);
    row("made even", begin + frame + scan + end + '\0', true);
    row("made even with whatever was there", begin + frame + scan + end + 'x', true);
    row("more than that", begin + frame + scan + end + "xyz", false);
    row("fill bytes before a marker", begin + "\xff\xff" + frame + scan + end, true);
    row("two scans", begin + frame + scan + scan + end, true);
    row("a comment", begin + marker("fffe000461ff") + frame + scan + end, true);
    row("empty", {}, false);
    row("no beginning", frame + scan + end, false);
    row("no end", begin + frame + scan, false);
    row("no scan", begin + frame + end, false);
    row("no frame", begin + scan + end, false);
    row("two frames", begin + frame + frame + scan + end, false);
    row("two images", begin + frame + scan + end + begin + frame + scan + end, false);
    row("the height behind the scan", begin + frame + scan + marker("ffdc00040040") + end, false);
    row("another coding", begin + marker("ffc9000b080040004001011100") + scan + end, false);
    row("a marker without a length", begin + marker("ff01") + frame + scan + end, false);
    row("a segment of no length", begin + marker("fffe0000") + frame + scan + end, false);
    row("a segment that is too long", begin + marker("fffe7fff") + frame + scan + end, false);
    row("components that are not there", begin + marker("ffc0000b080040004003011100") + scan + end, false);
    row("a loop", endlessJpeg(), false);
}

void DecodingTest::streamsAreWalkedToTheirEnd() {
    QFETCH(const QByteArray, stream);
    QFETCH(const bool, isWhole);
    QCOMPARE(decoder::readJpegStream(bytesOf(stream), decoder::Coding::Jpeg).has_value(), isWhole);
}

void DecodingTest::anIconIsDecodedToo() {
    const QByteArray pixels = framePixels(Byte);
    const QByteArray frame = encodedFrame(Byte, pixels, EXS_JPEGLSLossless);
    const QByteArray image = encapsulated(Byte, {frame});
    const qsizetype description = image.indexOf(QByteArray::fromHex("28000200"));
    const auto withIcon = [&](const QByteArray& icon) {
        const QByteArray sequence = QByteArray::fromHex("88000002") + "SQ" +
                                    QByteArray::fromHex("0000fffffffffeff00e0ffffffff") + icon +
                                    QByteArray::fromHex("feff0de000000000feffdde000000000");
        const qsizetype at = image.indexOf(QByteArray::fromHex("e07f1000"));
        return image.left(at) + sequence + image.mid(at);
    };
    const auto made = converted(withIcon(image.mid(description)), EXS_JPEGLSLossless);
    QVERIFY(made);
    const auto set = parsed(*made, EXS_LittleEndianExplicit);
    DcmItem* icon = nullptr;
    QVERIFY(set->findAndGetSequenceItem(DcmTagKey{0x0088, 0x0200}, icon).good());
    QVERIFY(pixelsIn(*icon) == pixels);
    QVERIFY(pixelsIn(*set) == pixels);
    // The checks are the same.
    QByteArray other = image.mid(description);
    other.replace(QByteArray::fromHex("280010005553020040"), QByteArray::fromHex("280010005553020041"));
    QVERIFY(other != image.mid(description));
    QVERIFY(!converted(withIcon(other), EXS_JPEGLSLossless));
}

void DecodingTest::nativeObjectsAreConvertedAsTheToolkitDoes_data() {
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    constexpr std::array Native{EXS_LittleEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit};
    for (const int from : Native) {
        for (const int to : Native)
            QTest::addRow("%s to %s", DcmXfer{static_cast<E_TransferSyntax>(from)}.getXferName(),
                          DcmXfer{static_cast<E_TransferSyntax>(to)}.getXferName())
                << from << to;
    }
}

void DecodingTest::nativeObjectsAreConvertedAsTheToolkitDoes() {
    QFETCH(const int, from);
    QFETCH(const int, to);
    const auto object = makeObject({});
    const QByteArray source = written(*object->getDataset(), static_cast<E_TransferSyntax>(from));
    const QByteArray expected = written(*object->getDataset(), static_cast<E_TransferSyntax>(to));
    const auto made =
        converted(source, static_cast<E_TransferSyntax>(from), static_cast<E_TransferSyntax>(to));
    QVERIFY(made);
    QVERIFY(*made == expected);
}

void DecodingTest::whatIsBehindThePixelsStaysThere() {
    const QByteArray frame = encodedFrame(Byte, framePixels(Byte), EXS_JPEGLSLossless);
    const QByteArray tail =
        QByteArray::fromHex("fcfffcff") + "OB" + QByteArray::fromHex("00000400000001020304");
    const auto made = converted(encapsulated(Byte, {frame}) + tail, EXS_JPEGLSLossless);
    QVERIFY(made);
    QVERIFY(made->endsWith(framePixels(Byte) + tail));
    // An element out of order goes to its place.
    const QByteArray late = QByteArray::fromHex("10000010") + "LO" + QByteArray::fromHex("0200") + "x ";
    const auto sorted = converted(encapsulated(Byte, {frame}) + late, EXS_JPEGLSLossless);
    QVERIFY(sorted);
    QVERIFY(sorted->contains(late) && sorted->endsWith(framePixels(Byte)));
}

/// It would take the four gigabytes that the length says before it looks for the bytes.
void DecodingTest::anElementLongerThanTheObjectIsNotGivenToTheToolkit() {
    DcmDataset set;
    set.putAndInsertString(DCM_SOPClassUID, "1.2.840.10008.5.1.4.1.1.66");
    set.putAndInsertString(DCM_SOPInstanceUID, "1.2.3");
    const QByteArray begin = written(set, EXS_LittleEndianImplicit);
    QVERIFY(converted(begin, EXS_LittleEndianImplicit).has_value());
    // In an item without a length of its own nothing else says how far it can reach.
    const QByteArray item = QByteArray::fromHex(
        "feff00e0ffffffff"
        "08005011f0ffff7f");
    const QByteArray sequence = QByteArray::fromHex("08004011ffffffff") + item;
    const long long before = peakOfAddressSpace();
    QVERIFY(!converted(begin + sequence, EXS_LittleEndianImplicit));
    QVERIFY(peakOfAddressSpace() - before < (1 << 20));
}

QTEST_APPLESS_MAIN(DecodingTest)
#include "tst_decoding.moc"
