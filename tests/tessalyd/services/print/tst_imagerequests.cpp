#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <array>

#include "tests/tessalyd/services/print/PrintTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::dicom::CommandField;

namespace {

/// What stations are answered for images and Presentation LUTs.
class ImageRequestsTest : public PrintTest {
    Q_OBJECT

  private Q_SLOTS:
    void checksImages_data();
    void checksImages();
    void checksPlacesOfImages();
    void reducesImages();
    void refusesImagesThatAreTooLarge();
    void takesLuts();
    void outlivesWhatIsNoDataSet();
};

void ImageRequestsTest::checksImages_data() {
    QTest::addColumn<PrintImage>("image");
    QTest::addColumn<int>("status");
    const auto row = [](const char* name, const PrintImage& image, int status) {
        QTest::newRow(name) << image << status;
    };
    row("12 bits", {}, 0);
    row("8 bits", PrintImage::eightBits(), 0);
    row("inverse", {.interpretation = "MONOCHROME1"}, 0);
    row("16 bits", {.stored = 16}, 0);
    row("no interpretation of ours", {.interpretation = "PALETTE COLOR"}, 0x0106);
    row("colour in grayscale", {.interpretation = "RGB"}, 0x0106);
    row("no rows", {.rows = 0, .pixels = "12"}, 0x0106);
    row("no columns", {.columns = 0, .pixels = "12"}, 0x0106);
    row("more bits than there are", {.stored = 17}, 0x0106);
    row("too few bits", {.stored = 7}, 0x0106);
    row("no such allocation",
        {.allocated = 32, .stored = 12, .pixels = QByteArray(qsizetype{16} * 16 * 4, 'x')}, 0x0106);
    row("too few pixels", {.pixels = QByteArray(16 * 16 * 2 - 2, 'x')}, 0x0106);
    row("more pixels than needed", {.pixels = QByteArray(16 * 16 * 2 + 2, 'x')}, 0);
    row("more than 64 MB", {.rows = 65535, .columns = 65535, .pixels = "12"}, 0xc605);
}

void ImageRequestsTest::checksImages() {
    QFETCH(const PrintImage, image);
    QFETCH(const int, status);
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    const std::string box = prepare(peer);
    QCOMPARE(peer.setImage(box, 1, image).status, status);
    QCOMPARE(peer.printFilm().status, status == 0 ? 0 : 0xb603);  // nothing has changed
    if (status != 0)
        QVERIFY(spooled().filter(u"/image-"_s).isEmpty());
}

void ImageRequestsTest::checksPlacesOfImages() {
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    const std::string box = prepare(peer);
    QCOMPARE(peer.setImage(box, 2).status, 0x0106);
    QCOMPARE(peer.setImage("1.2.3.999", 1).status, 0x0112);
    DcmDataset withoutPosition = peer.imageDataSet(1, {}, {}, {});
    delete withoutPosition.remove(DCM_ImageBoxPosition);
    QCOMPARE(
        peer.request(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass, box, &withoutPosition).status,
        0x0120);
    DcmDataset withoutSequence;
    withoutSequence.putAndInsertUint16(DCM_ImageBoxPosition, 1);
    QCOMPARE(
        peer.request(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass, box, &withoutSequence).status,
        0x0120);
    for (const DcmTagKey& tag : {DCM_Rows, DCM_BitsStored, DCM_HighBit, DCM_PhotometricInterpretation,
                                 DCM_PixelRepresentation, DCM_SamplesPerPixel}) {
        DcmDataset lacking = peer.imageDataSet(1, {}, {}, {});
        DcmItem* item = nullptr;
        lacking.findAndGetSequenceItem(DCM_BasicGrayscaleImageSequence, item);
        delete item->remove(tag);
        QCOMPARE(peer.request(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass, box, &lacking).status,
                 0x0120);
    }
    QCOMPARE(peer.setImage(box, 1).status, 0);
    QCOMPARE(peer.eraseImage(box, 1).status, 0);
    QCOMPARE(peer.printFilm().status, 0xb603);
}

void ImageRequestsTest::reducesImages() {
    ScriptedPrinter printer;
    launchWith(printer.port(), {{u"GridSizeDx"_s, 20}, {u"GridSizeDy"_s, 40}});
    PrintStation peer = PrintStation{daemon_->port()};
    QCOMPARE(peer.createSession().status, 0);
    const auto film =
        peer.createFilm("STANDARD\\1,2", {{DCM_FilmOrientation, "LANDSCAPE"}});  // boxes of 40 x 10
    const auto boxes = film.references(DCM_ReferencedImageBoxSequence);
    const PrintImage tall{.rows = 20, .columns = 20};
    QCOMPARE(peer.setImage(boxes.at(0), 1, tall, {{DCM_RequestedDecimateCropBehavior, "FAIL"}}).status,
             0xc603);
    QCOMPARE(peer.setImage(boxes.at(0), 1, tall).status, 0xb604);
    QCOMPARE(peer.setImage(boxes.at(1), 2, {.rows = 10, .columns = 40}).status, 0);
    QCOMPARE(peer.printFilm().status, 0);
    EVENTUALLY(areAll(2, 1));
    const auto images = printer.requests(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass);
    QCOMPARE(images.at(0).pixels.size(), 10 * 10 * 2);
    QCOMPARE(images.at(1).pixels.size(), 10 * 40 * 2);
}

void ImageRequestsTest::refusesImagesThatAreTooLarge() {
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    const std::string box = prepare(peer);
    const PrintImage most{.rows = 8192, .columns = 4096};
    QCOMPARE(peer.setImage(box, 1, most).status, 0);
    const PrintImage more{.rows = 8193, .columns = 4096};
    QCOMPARE(peer.setImage(box, 1, more).status, 0xc605);
    QCOMPARE(spooled().filter(u"/image-"_s).size(), 1);  // the one before is there still
    QCOMPARE(peer.printFilm().status, 0);
}

void ImageRequestsTest::takesLuts() {
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    const auto create = [&peer](DcmDataset& dataSet, const char* uid = "1.2.3.300") {
        return peer.request(CommandField::NCreate, UID_PresentationLUTSOPClass, uid, &dataSet).status;
    };
    DcmDataset none;
    none.putAndInsertString(DCM_FilmSessionLabel, "x");
    QCOMPARE(create(none), 0x0120);
    DcmDataset shape;
    shape.putAndInsertString(DCM_PresentationLUTShape, "ROUND");
    QCOMPARE(create(shape), 0x0106);
    shape.putAndInsertString(DCM_PresentationLUTShape, "LIN OD");
    QCOMPARE(create(shape), 0);
    QCOMPARE(create(shape), 0x0111);
    DcmDataset table;
    DcmItem* item = nullptr;
    table.findOrCreateSequenceItem(DCM_PresentationLUTSequence, item);
    const std::array<Uint16, 3> descriptor{256, 0, 12};
    item->putAndInsertUint16Array(DcmTag{DCM_LUTDescriptor, EVR_US}, descriptor.data(), 3);
    std::vector<Uint16> values(255, 7);
    item->putAndInsertUint16Array(DcmTag{DCM_LUTData, EVR_US}, values.data(), values.size());
    QCOMPARE(create(table, "1.2.3.301"), 0x0106);
    values.push_back(4096);
    item->putAndInsertUint16Array(DcmTag{DCM_LUTData, EVR_US}, values.data(), values.size());
    QCOMPARE(create(table, "1.2.3.301"), 0x0106);
    values.back() = 4095;
    item->putAndInsertUint16Array(DcmTag{DCM_LUTData, EVR_US}, values.data(), values.size());
    QCOMPARE(create(table, "1.2.3.301"), 0);
    QCOMPARE(peer.createSession().status, 0);
    QCOMPARE(peer.createFilm("STANDARD\\1,1", {}, "1.2.3.200", "1.2.3.100", "1.2.3.999").status, 0x0116);
    const auto film = peer.createFilm("STANDARD\\1,1", {}, "1.2.3.201", "1.2.3.100", "1.2.3.301");
    QCOMPARE(film.status, 0);
    QCOMPARE(film.references(DCM_ReferencedPresentationLUTSequence), std::vector<std::string>{"1.2.3.301"});
    QCOMPARE(peer.request(CommandField::NDelete, UID_PresentationLUTSOPClass, "1.2.3.301").status, 0);
    QCOMPARE(peer.request(CommandField::NDelete, UID_PresentationLUTSOPClass, "1.2.3.301").status, 0x0112);
}

void ImageRequestsTest::outlivesWhatIsNoDataSet() {
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    const std::string box = prepare(peer);
    const auto nested = nestedSequences(5000);
    const QByteArray deep{nested.data(), static_cast<qsizetype>(nested.size())};
    QCOMPARE(peer.requestBytes(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass, box, deep).status,
             0x0106);
    QCOMPARE(peer.requestBytes(CommandField::NCreate, UID_BasicFilmBoxSOPClass, "1.2.3.201", deep).status,
             0x0106);
    const QByteArray cut = QByteArray::fromHex("10201000535400000000ffff");
    QCOMPARE(peer.requestBytes(CommandField::NCreate, UID_BasicFilmBoxSOPClass, "1.2.3.201", cut).status,
             0x0106);
    // An endless value, none of which is kept.
    const QByteArray longText =
        QByteArray::fromHex("1020500155540000") + QByteArray::fromHex("00004000") + QByteArray(4 << 20, 'x');
    QCOMPARE(peer.requestBytes(CommandField::NCreate, UID_BasicFilmBoxSOPClass, "1.2.3.201", longText).status,
             0x0106);
    QCOMPARE(peer.setImage(box, 1).status, 0);
}

}  // namespace

QTEST_GUILESS_MAIN(ImageRequestsTest)
#include "tst_imagerequests.moc"
