#include <QTemporaryFile>
#include <QTest>

#include "tessalyd/forwarding/films/DisplayFormat.h"
#include "tessalyd/forwarding/films/ImagePixels.h"

using namespace tessaly::tessalyd::films;

namespace {

QByteArray converted(const QByteArray& pixels, const ImageLayout& source, const TargetLayout& target) {
    QTemporaryFile file;
    if (!file.open() || file.write(pixels) != pixels.size() || !file.flush())
        return {};
    QByteArray result;
    convertPixels(file.handle(), source, target, [&result](std::span<const char> piece) {
        result.append(piece.data(), static_cast<qsizetype>(piece.size()));
    });
    return result;
}

ImageLayout gray8(unsigned rows, unsigned columns) {
    return {.rows = rows, .columns = columns, .bitsAllocated = 8, .bitsStored = 8};
}
TargetLayout to8(unsigned rows, unsigned columns) {
    return {.rows = rows, .columns = columns, .bits = 8};
}

/// Pixels on their way from what a station sends to what a printer takes.
class FilmPixelsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void everyValueOfEightBits();
    void everyValueOfTwelveBits();
    void reducesToMeans();
    void reducesBySharesOfPixels();
    void keepsAPlainSurfacePlain_data();
    void keepsAPlainSurfacePlain();
    void colourStaysByPlane();
    void masksWhatIsNotStored();
    void refusesAFileThatIsTooShort();
    void fitsIntoBoxes_data();
    void fitsIntoBoxes();
    void dividesFilms();
};

void FilmPixelsTest::everyValueOfEightBits() {
    QByteArray all(256, '\0');
    for (int i = 0; i < 256; ++i)
        all[i] = static_cast<char>(i);
    const QByteArray twelve = converted(all, gray8(16, 16), {.rows = 16, .columns = 16, .bits = 12});
    QCOMPARE(twelve.size(), 512);
    for (qsizetype i = 0; i < 256; ++i) {
        const unsigned value = static_cast<unsigned char>(twelve[2 * i]) |
                               static_cast<unsigned>(static_cast<unsigned char>(twelve[2 * i + 1])) << 8U;
        QCOMPARE(value, static_cast<unsigned>(std::lround(static_cast<double>(i) * 4095.0 / 255)));
    }
    QCOMPARE(converted(all, gray8(16, 16), to8(16, 16)), all);
}

void FilmPixelsTest::everyValueOfTwelveBits() {
    QByteArray all;
    for (unsigned i = 0; i < 4096; ++i)
        all.append(static_cast<char>(i & 0xffU)).append(static_cast<char>(i >> 8U));
    const ImageLayout layout{.rows = 64, .columns = 64, .bitsAllocated = 16, .bitsStored = 12};
    QCOMPARE(converted(all, layout, {.rows = 64, .columns = 64, .bits = 12}), all);
    const QByteArray eight = converted(all, layout, to8(64, 64));
    for (int i = 0; i < 4096; ++i)
        QCOMPARE(static_cast<int>(static_cast<unsigned char>(eight[i])),
                 static_cast<int>(std::lround(i * 255.0 / 4095)));
}

void FilmPixelsTest::reducesToMeans() {
    // Four pixels in one each.
    const QByteArray pixels = QByteArray::fromHex(
        "0002"
        "1020"
        "0406"
        "3040");
    QCOMPARE(converted(pixels, gray8(4, 2), to8(2, 1)),
             QByteArray::fromHex("0d1f"));  // 12.5 and 30.5 are rounded up
}

void FilmPixelsTest::reducesBySharesOfPixels() {
    // Three in two: each takes one and a half.
    QCOMPARE(converted(QByteArray::fromHex("003c78"), gray8(1, 3), to8(1, 2)), QByteArray::fromHex("1464"));
    QCOMPARE(converted(QByteArray::fromHex("003c78"), gray8(3, 1), to8(2, 1)), QByteArray::fromHex("1464"));
}

void FilmPixelsTest::keepsAPlainSurfacePlain_data() {
    QTest::addColumn<unsigned>("rows");
    QTest::addColumn<unsigned>("columns");
    for (const auto& [rows, columns] : {std::pair{1U, 1U}, {7U, 5U}, {99U, 1U}, {1U, 100U}, {98U, 99U}})
        QTest::addRow("%u x %u", columns, rows) << rows << columns;
}

void FilmPixelsTest::keepsAPlainSurfacePlain() {
    QFETCH(const unsigned, rows);
    QFETCH(const unsigned, columns);
    const QByteArray plain(qsizetype{99} * 100, static_cast<char>(200));
    const QByteArray reduced = converted(plain, gray8(99, 100), to8(rows, columns));
    QCOMPARE(reduced, QByteArray(static_cast<qsizetype>(rows * columns), static_cast<char>(200)));
}

void FilmPixelsTest::colourStaysByPlane() {
    const ImageLayout byPixel{.rows = 1, .columns = 2, .samples = 3, .bitsAllocated = 8, .bitsStored = 8};
    ImageLayout byPlane = byPixel;
    byPlane.isByPlane = true;
    const TargetLayout target{.rows = 1, .columns = 2, .isColour = true};
    QCOMPARE(converted(QByteArray::fromHex("010203040506"), byPixel, target),
             QByteArray::fromHex("010402050306"));
    QCOMPARE(converted(QByteArray::fromHex("010203040506"), byPlane, target),
             QByteArray::fromHex("010203040506"));
}

void FilmPixelsTest::masksWhatIsNotStored() {
    const ImageLayout layout{.rows = 1, .columns = 1, .bitsAllocated = 16, .bitsStored = 12};
    QCOMPARE(converted(QByteArray::fromHex("34f2"), layout, {.rows = 1, .columns = 1, .bits = 12}),
             QByteArray::fromHex("3402"));
}

void FilmPixelsTest::refusesAFileThatIsTooShort() {
    QVERIFY_THROWS_EXCEPTION(std::runtime_error,
                             (void)converted(QByteArray(15, 'x'), gray8(4, 4), to8(4, 4)));
}

void FilmPixelsTest::fitsIntoBoxes_data() {
    QTest::addColumn<QSize>("image");
    QTest::addColumn<QSize>("box");
    QTest::addColumn<QSize>("size");
    QTest::newRow("smaller") << QSize{10, 10} << QSize{20, 20} << QSize{10, 10};
    QTest::newRow("as large") << QSize{20, 20} << QSize{20, 20} << QSize{20, 20};
    QTest::newRow("wider") << QSize{40, 20} << QSize{20, 20} << QSize{20, 10};
    QTest::newRow("higher") << QSize{20, 40} << QSize{20, 20} << QSize{10, 20};
    QTest::newRow("of the same shape") << QSize{60, 40} << QSize{30, 20} << QSize{30, 20};
    QTest::newRow("a line") << QSize{65535, 1} << QSize{10, 10} << QSize{10, 1};
}

void FilmPixelsTest::fitsIntoBoxes() {
    QFETCH(const QSize, image);
    QFETCH(const QSize, box);
    QFETCH(const QSize, size);
    const auto of = [](const QSize& one) {
        return PixelSize{.columns = static_cast<unsigned>(one.width()),
                         .rows = static_cast<unsigned>(one.height())};
    };
    const PixelSize found = fitted(of(image), of(box));
    QCOMPARE((QSize{static_cast<int>(found.columns), static_cast<int>(found.rows)}), size);
}

void FilmPixelsTest::dividesFilms() {
    const auto boxOf = [](const char* format, std::size_t box) {
        const auto size = DisplayFormat::parse(format).value().boxOf(box, {.width = 600, .height = 1200});
        return QSize{static_cast<int>(size.width), static_cast<int>(size.height)};
    };
    QCOMPARE(boxOf("STANDARD\\2,3", 5), (QSize{300, 400}));
    QCOMPARE(boxOf("ROW\\1,3", 0), (QSize{600, 600}));
    QCOMPARE(boxOf("ROW\\1,3", 1), (QSize{200, 600}));
    QCOMPARE(boxOf("COL\\1,3", 0), (QSize{300, 1200}));
    QCOMPARE(boxOf("COL\\1,3", 3), (QSize{300, 400}));
}

}  // namespace

QTEST_GUILESS_MAIN(FilmPixelsTest)
#include "tst_filmpixels.moc"
