#include <dcmtk/dcmdata/dcuid.h>

#include "tests/tessalyd/forwarding/composing/ComposingTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

/// Every pixel of films that are composed, compared with the formulas.
class ComposedPicturesTest : public ComposingTest {
    Q_OBJECT

  private Q_SLOTS:
    void everyLayout_data();
    void everyLayout();
    void everyColour_data();
    void everyColour();
    void eightBits();
    void inGrayWhereThePrinterHasNoColour();
    void everyCoding_data();
    void everyCoding();

  private:
    static std::vector<Picture> grays();
    static std::vector<Picture> colours();
    static void compare(const std::vector<PrintedFilm>& films, const std::vector<Picture>& pictures,
                        const QString& format,
                        const std::function<QByteArray(const Picture&, int)>& expected);
};

PictureTable ramp(int first, int count, int bits) {
    PictureTable table{.first = first, .bits = bits};
    for (int i = 0; i < count; ++i)
        table.values.push_back(static_cast<std::uint16_t>((i * 7919 + 13) % (1 << bits)));
    return table;
}

std::vector<Picture> ComposedPicturesTest::grays() {
    std::vector<Picture> all{
        {.centre = 2000, .width = 1500},
        {.centre = 2000.5, .width = 1},
        {.slope = 1, .intercept = -1024, .centre = 40, .width = 400},
        {.stored = 16, .isSigned = true, .slope = 0.25, .intercept = 3.5, .centre = 100, .width = 6000},
        {.centre = 1800, .width = 900, .function = "SIGMOID"},
        {.centre = 1800, .width = 900, .function = "LINEAR_EXACT"},
        {.photometric = "MONOCHROME1", .centre = 2100, .width = 3000},
        {.photometric = "MONOCHROME1"},
        {.isSigned = true, .padding = -2000},
        {.stored = 10, .padding = 1023},
        {.voi = ramp(100, 3000, 10)},
        {.isSigned = true, .voi = ramp(-1500, 2500, 12)},
        {.stored = 8, .modality = ramp(0, 256, 16), .centre = 30000, .width = 40000},
        {.allocated = 8, .stored = 8},
        {.allocated = 8, .stored = 5, .centre = 16, .width = 20},
        {.allocated = 1, .stored = 1},
        {.allocated = 32, .stored = 20, .centre = 500000, .width = 700000},
        {.frames = 30, .centre = 2048, .width = 4096},
        {.rows = 1, .columns = 300, .slope = -1, .intercept = 4095},
        {.rows = 200, .columns = 3, .stored = 16}};
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i].number = static_cast<int>(i) + 1;
    return all;
}

std::vector<Picture> ComposedPicturesTest::colours() {
    const PictureTable red = ramp(10, 200, 8);
    const PictureTable wide = ramp(10, 200, 16);
    std::vector<Picture> all{{.allocated = 8, .stored = 8, .photometric = "RGB", .planar = 0},
                             {.allocated = 8, .stored = 8, .photometric = "RGB", .planar = 1},
                             {.frames = 3, .allocated = 8, .stored = 8, .photometric = "RGB", .planar = 1},
                             {.allocated = 16, .stored = 12, .photometric = "RGB", .planar = 0},
                             {.allocated = 8, .stored = 8, .photometric = "YBR_FULL"},
                             {.allocated = 8, .stored = 8, .photometric = "YBR_FULL", .planar = 1},
                             {.frames = 2, .allocated = 8, .stored = 8, .photometric = "YBR_FULL_422"},
                             {.allocated = 8,
                              .stored = 8,
                              .photometric = "PALETTE COLOR",
                              .palette = {red, ramp(10, 200, 8), red}},
                             {.stored = 9, .photometric = "PALETTE COLOR", .palette = {wide, wide, wide}},
                             {.centre = 2000, .width = 1500},
                             {.photometric = "MONOCHROME1"}};
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i].number = static_cast<int>(i) + 1;
    return all;
}

void ComposedPicturesTest::compare(const std::vector<PrintedFilm>& films,
                                   const std::vector<Picture>& pictures, const QString& format,
                                   const std::function<QByteArray(const Picture&, int)>& expected) {
    const QStringList sides = format.split(u'\\').at(1).split(u',');
    const int boxes = sides.at(0).toInt() * sides.at(1).toInt();
    std::vector<std::pair<const Picture*, int>> frames;
    for (const Picture& picture : pictures)
        for (int frame = 0; frame < picture.frames; ++frame)
            frames.emplace_back(&picture, frame);
    for (std::size_t place = 0; place < frames.size(); ++place) {
        const auto count = static_cast<std::size_t>(boxes);
        const std::size_t number = place / count;
        QVERIFY2(number < films.size(), qPrintable(u"%1 films came"_s.arg(films.size())));
        const PrintedFilm& film = films.at(number);
        const auto first = frames.begin() + static_cast<std::ptrdiff_t>(number * count);
        const auto last =
            frames.begin() + static_cast<std::ptrdiff_t>(std::min((number + 1) * count, frames.size()));
        const bool isColour = std::any_of(first, last, [](const auto& one) { return one.first->isColour(); });
        QCOMPARE(film.format, format);
        QCOMPARE(film.isColour, isColour);
        QCOMPARE(film.boxes.size(), last - first);
        const auto& [picture, frame] = frames.at(place);
        const QByteArray want = isColour ? picture->onColourFilm(frame) : expected(*picture, frame);
        const QByteArray got = film.boxes.value(static_cast<int>(place % count) + 1);
        QCOMPARE(got.size(), want.size());
        for (qsizetype i = 0; i < want.size(); ++i)
            QVERIFY2(got.at(i) == want.at(i),
                     qPrintable(u"picture %1, frame %2, byte %3: %4 and not %5"_s.arg(picture->number)
                                    .arg(frame)
                                    .arg(i)
                                    .arg(static_cast<unsigned char>(got.at(i)))
                                    .arg(static_cast<unsigned char>(want.at(i)))));
    }
    QCOMPARE(films.size(),
             (frames.size() + static_cast<std::size_t>(boxes) - 1) / static_cast<std::size_t>(boxes));
}

void ComposedPicturesTest::everyLayout_data() {
    QTest::addColumn<QString>("layout");
    for (const char* sides :
         {"1,1", "1,2", "2,2", "2,3", "2,4", "3,3", "3,4", "3,5", "4,4", "4,5", "4,6", "5,5", "5,6", "5,7"})
        QTest::newRow(sides) << u"STANDARD\\"_s + QLatin1StringView{sides};
}

void ComposedPicturesTest::everyLayout() {
    QFETCH(const QString, layout);
    ScriptedPrinter printer;
    launchFor(printer.port(), layout);
    const auto pictures = grays();
    store(pictures);
    const Retrieved moved = move();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, static_cast<int>(pictures.size()), 0, 0}));
    EVENTUALLY(!jobs().isEmpty() && areAll(2, static_cast<int>(jobs().size())));
    compare(filmsOf(printer), pictures, layout,
            [](const Picture& picture, int frame) { return picture.onFilm(frame); });
}

void ComposedPicturesTest::everyColour_data() {
    everyLayout_data();
}

void ComposedPicturesTest::everyColour() {
    QFETCH(const QString, layout);
    ScriptedPrinter printer;
    launchFor(printer.port(), layout);
    const auto pictures = colours();
    store(pictures);
    QCOMPARE(move().status, 0);
    EVENTUALLY(!jobs().isEmpty() && areAll(2, static_cast<int>(jobs().size())));
    compare(filmsOf(printer), pictures, layout,
            [](const Picture& picture, int frame) { return picture.onFilm(frame); });
}

void ComposedPicturesTest::eightBits() {
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\5,7"_s, {{u"Force8bit"_s, 8}});
    const auto pictures = grays();
    store(pictures);
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 2));
    compare(filmsOf(printer), pictures, u"STANDARD\\5,7"_s,
            [](const Picture& picture, int frame) { return picture.onFilmOfEight(frame); });
}

void ComposedPicturesTest::inGrayWhereThePrinterHasNoColour() {
    ScriptedPrinter printer{{}, ScriptedPrinter::grayscale()};
    launchFor(printer.port(), u"STANDARD\\3,4"_s);
    const Picture colour{.allocated = 8, .stored = 8, .photometric = "RGB"};
    const Picture gray{.number = 2, .centre = 2000, .width = 1500};
    store({colour, gray});
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 1));
    const auto films = filmsOf(printer);
    QCOMPARE(films.size(), 1U);
    QCOMPARE(films.at(0).boxes.value(2), gray.onFilm(0));
    // ITU-R BT.601, from 8 bits to 12.
    const QByteArray rgb = colour.onColourFilm(0);
    const qsizetype plane = rgb.size() / 3;
    for (qsizetype i = 0; i < plane; ++i) {
        const auto of = [&](qsizetype number) {
            return static_cast<double>(static_cast<unsigned char>(rgb.at(number * plane + i)));
        };
        const double light = std::floor(0.299 * of(0) + 0.587 * of(1) + 0.114 * of(2) + 0.5);
        const int want = static_cast<int>(std::floor(light * 4095 / 255 + 0.5));
        const auto& got = films.at(0).boxes.value(1);
        QCOMPARE(static_cast<unsigned char>(got.at(2 * i)) | static_cast<unsigned char>(got.at(2 * i + 1))
                                                                 << 8,
                 want);
    }
}

void ComposedPicturesTest::everyCoding_data() {
    QTest::addColumn<int>("syntax");
    QTest::addColumn<QString>("option");
    const auto row = [](const char* name, E_TransferSyntax syntax, const QString& option) {
        QTest::newRow(name) << static_cast<int>(syntax) << option;
    };
    row("implicit", EXS_LittleEndianImplicit, u"-xi"_s);
    row("big endian", EXS_BigEndianExplicit, u"-xb"_s);
    row("deflated", EXS_DeflatedLittleEndianExplicit, u"-xd"_s);
    row("JPEG", EXS_JPEGProcess14SV1, u"-xs"_s);
    row("JPEG-LS", EXS_JPEGLSLossless, u"-xt"_s);
    row("run lengths", EXS_RLELossless, u"-xr"_s);
}

void ComposedPicturesTest::everyCoding() {
    QFETCH(const int, syntax);
    QFETCH(const QString, option);
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\2,2"_s);
    needCodecs();
    const std::vector<Picture> pictures{
        {.number = 1, .stored = 16, .voi = ramp(100, 3000, 12)},
        {.number = 2, .stored = 16, .modality = ramp(0, 50000, 16), .centre = 30000, .width = 40000},
        {.number = 3,
         .frames = 2,
         .stored = 16,
         .isSigned = true,
         .slope = 0.25,
         .centre = 100,
         .width = 6000}};
    for (const Picture& picture : pictures) {
        const QString file = scratch(u"%1.dcm"_s.arg(picture.number));
        auto object = picture.object();
        QVERIFY(object->chooseRepresentation(static_cast<E_TransferSyntax>(syntax), nullptr).good());
        QVERIFY(object->saveFile(qPrintable(file), static_cast<E_TransferSyntax>(syntax)).good());
        const Outcome sent = run(u"storescu"_s, {option, u"localhost"_s, daemon_->port(), file});
        QVERIFY2(sent.exitCode == 0, qPrintable(sent.output));
    }
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 1));
    compare(filmsOf(printer), pictures, u"STANDARD\\2,2"_s,
            [](const Picture& picture, int frame) { return picture.onFilm(frame); });
}

}  // namespace

QTEST_GUILESS_MAIN(ComposedPicturesTest)
#include "tst_composedpictures.moc"
