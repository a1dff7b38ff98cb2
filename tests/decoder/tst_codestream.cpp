#include <QTest>

#include "decoder/CodeStream.h"
#include "tests/decoder/Converted.h"
#include "tests/tessalyd/Jpeg2000Encoder.h"

using namespace tessaly;
using namespace tessaly::test;

namespace {

const dicom::TransferSyntax Lossless{EXS_JPEG2000LosslessOnly};

const ImageSpec Byte{.bits = 8, .stored = 8};
const ImageSpec Colour{.samples = 3, .bits = 8, .stored = 8, .photometric = "RGB"};

}  // namespace

/// What is looked at in a JPEG 2000 code stream before the library sees it, and what it must not be.
class CodeStreamTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void whatIsNotTheHeadersImageIsNotDecoded_data();
    void whatIsNotTheHeadersImageIsNotDecoded();
    void streamsAreWalkedToTheirEnd();
};

void CodeStreamTest::whatIsNotTheHeadersImageIsNotDecoded_data() {
    QTest::addColumn<QByteArray>("object");
    const QByteArray frame = waveletFrame(Byte, framePixels(Byte));
    const auto row = [&frame](const char* name, const ImageSpec& image, const QByteArray& stream) {
        QTest::newRow(name) << encapsulated(image, {stream.isNull() ? frame : stream});
    };
    ImageSpec image = Byte;
    image.rows = 63;
    row("fewer rows", image, {});
    image = Byte;
    image.columns = 128;
    row("more columns", image, {});
    row("other samples", Colour, {});
    row("a wider sample than is allocated", Byte, waveletFrame({.stored = 16}, framePixels({.stored = 16})));
    row("fewer frames", {.bits = 8, .stored = 8, .frames = "2"}, {});
    row("colours that are said to be transformed",
        {.samples = 3, .bits = 8, .stored = 8, .photometric = "YBR_RCT"},
        waveletFrame(Colour, framePixels(Colour)));
    row("signed pixels of an image without a sign", Byte,
        waveletFrame(Byte, framePixels(Byte), {.isSigned = true}));
    row("no stream", Byte, QByteArray(100, 'x'));
    for (const qsizetype size : {2, 4, 40, 60, 90})
        QTest::addRow("%lld bytes of it", static_cast<long long>(size))
            << encapsulated(Byte, {frame.left(size)});
    row("cut off", Byte, frame.chopped(50));
    row("without its end", Byte, frame.chopped(2));
    row("cut off, with its end", Byte, frame.chopped(500) + QByteArray::fromHex("ffd9"));
    row("something behind it", Byte, frame + frame);
    const QByteArray tiles = waveletFrame(Byte, framePixels(Byte), {.tile = 32});
    const qsizetype second = tiles.indexOf(QByteArray::fromHex("ff90000a0001"));
    row("a tile that lacks", Byte, tiles.left(second) + QByteArray::fromHex("ffd9"));
    QByteArray changed = frame;
    changed[8] = '\x7f';  // columns of the reference grid
    row("a grid of 2 billion columns", Byte, changed);
    changed = frame;
    changed.replace(24, 8, QByteArray::fromHex("0000000100000001"));  // a tile's columns and rows
    row("a tile for each pixel", Byte, changed);
    changed = frame;
    changed.replace(frame.indexOf(QByteArray::fromHex("ff52")) + 6, 2, QByteArray::fromHex("ffff"));
    row("65,535 layers", Byte, changed);
}

void CodeStreamTest::whatIsNotTheHeadersImageIsNotDecoded() {
    QFETCH(const QByteArray, object);
    QVERIFY(!converted(object, Lossless));
}

void CodeStreamTest::streamsAreWalkedToTheirEnd() {
    const QByteArray frame = waveletFrame(Byte, framePixels(Byte));
    const auto whole = decoder::readCodeStream(bytesOf(frame));
    QVERIFY(whole);
    QCOMPARE(whole->size, static_cast<std::size_t>(frame.size()));
    for (const QByteArray& filling : {QByteArray(1, 'x'), QByteArray(1, '\0'), QByteArray(7, '\0')})
        QVERIFY(decoder::readCodeStream(bytesOf(frame + filling)));
    QVERIFY(!decoder::readCodeStream(bytesOf(frame + "xx")));
    for (qsizetype size = 0; size < frame.size(); ++size)
        QVERIFY(!decoder::readCodeStream(bytesOf(frame.left(size))));
    // The last tile-part may leave its length to the stream's end.
    QByteArray endless = frame;
    endless.replace(frame.indexOf(QByteArray::fromHex("ff90000a0000")) + 6, 4, QByteArray(4, '\0'));
    for (const QByteArray& filling : {QByteArray{}, QByteArray(1, 'x'), QByteArray(7, '\0')}) {
        const auto found = decoder::readCodeStream(bytesOf(endless + filling));
        QVERIFY(found);
        QCOMPARE(found->size, whole->size);
    }
    QVERIFY(!decoder::readCodeStream(bytesOf(endless.chopped(1))));
}

QTEST_GUILESS_MAIN(CodeStreamTest)
#include "tst_codestream.moc"
