#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <array>

#include "tests/tessalyd/services/print/PrintTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::dicom::CommandField;

namespace {

constexpr int Done = 2;  // Job.State

/// What printers get: pixels, Presentation LUTs, annotations.
class FilmContentTest : public PrintTest {
    Q_OBJECT

  private Q_SLOTS:
    void printsColourInGray_data();
    void printsColourInGray();
    void convertsDepths_data();
    void convertsDepths();
    void rendersLuts();
    void sendsLutsWhereTheyAreTaken();
    void sendsAnnotations_data();
    void sendsAnnotations();
};

void FilmContentTest::printsColourInGray_data() {
    QTest::addColumn<bool>("isForced");
    QTest::addColumn<int>("planar");
    for (const bool isForced : {true, false})
        for (const int planar : {0, 1})
            QTest::addRow("forced %d, planar %d", isForced, planar) << isForced << planar;
}

void FilmContentTest::printsColourInGray() {
    QFETCH(const bool, isForced);
    QFETCH(const int, planar);
    ScriptedPrinter printer{{}, isForced ? ScriptedPrinter::everything() : ScriptedPrinter::grayscale()};
    launchWith(printer.port(), {{u"ForceBW"_s, isForced ? 1 : 0}, {u"Force8bit"_s, 8}});
    PrintStation peer = station();
    peer.useColour();
    PrintImage image = PrintImage::colour();
    image.rows = image.columns = 2;
    image.planar = planar;
    // Red, green, blue, white.
    image.pixels = planar == 1 ? QByteArray::fromHex("ff0000ff00ff00ff0000ffff")
                               : QByteArray::fromHex("ff000000ff000000ffffffff");
    QCOMPARE(peer.printAll("STANDARD\\1,1", image).status, 0);
    EVENTUALLY(areAll(Done, 1));
    const auto images = printer.requests(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass);
    QCOMPARE(images.size(), 1U);
    QCOMPARE(images.front().pixels, QByteArray::fromHex("4c961dff"));  // 0.299, 0.587, 0.114
    QCOMPARE(daemon_->log().contains(u"it does not print colour"_s), !isForced);
}

void FilmContentTest::convertsDepths_data() {
    QTest::addColumn<QVariant>("force");
    QTest::addColumn<int>("stored");
    QTest::addColumn<QByteArray>("given");
    QTest::addColumn<QByteArray>("sent");
    const auto row = [](const char* name, const QVariant& force, int stored, const char* given,
                        const char* sent) {
        QTest::newRow(name) << force << stored << QByteArray::fromHex(given) << QByteArray::fromHex(sent);
    };
    // 0, 1, 128, 255 in 8 bits; 0, 16, 2048, 4095 in 12.
    row("8 in 12", 12, 8, "000180ff",
        "00001000"
        "0808"
        "ff0f");
    row("8 in 12 without a number", {}, 8, "000180ff",
        "00001000"
        "0808"
        "ff0f");
    row("8 in 12 for 16", 16, 8, "000180ff",
        "00001000"
        "0808"
        "ff0f");
    row("8 in 8", 8, 8, "000180ff", "000180ff");
    row("8 in 8 for 1", 1, 8, "000180ff", "000180ff");
    row("8 in 10", 10, 8, "000180ff",
        "0000"
        "1000"
        "0808"
        "fc0f");
    row("12 in 12", 0, 12,
        "0000"
        "1000"
        "0008"
        "ff0f",
        "0000"
        "1000"
        "0008"
        "ff0f");
    row("12 in 8", 8, 12,
        "0000"
        "1000"
        "0008"
        "ff0f",
        "000180ff");
    row("16 in 12", 12, 16,
        "0000"
        "0010"
        "0080"
        "ffff",
        "0000"
        "0001"
        "0008"
        "ff0f");
}

void FilmContentTest::convertsDepths() {
    QFETCH(const QVariant, force);
    QFETCH(const int, stored);
    QFETCH(const QByteArray, given);
    QFETCH(const QByteArray, sent);
    ScriptedPrinter printer;
    launchWith(printer.port(), {{u"Force8bit"_s, force}});
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\1,1", {.rows = 2,
                                             .columns = 2,
                                             .allocated = stored == 8 ? 8 : 16,
                                             .stored = stored,
                                             .pixels = given})
                 .status,
             0);
    EVENTUALLY(areAll(Done, 1));
    QCOMPARE(printer.requests(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass).at(0).pixels.toHex(),
             sent.toHex());
}

/// A LUT that inverts 8 bits into 12.
DcmDataset invertingLut() {
    DcmDataset dataSet;
    DcmItem* item = nullptr;
    dataSet.findOrCreateSequenceItem(DCM_PresentationLUTSequence, item);
    const std::array<Uint16, 3> descriptor{256, 0, 12};
    item->putAndInsertUint16Array(DcmTag{DCM_LUTDescriptor, EVR_US}, descriptor.data(), 3);
    std::vector<Uint16> values;
    for (unsigned i = 0; i < 256; ++i)
        values.push_back(static_cast<Uint16>(4095 - i * 16));
    item->putAndInsertUint16Array(DcmTag{DCM_LUTData, EVR_US}, values.data(), values.size());
    return dataSet;
}

void FilmContentTest::rendersLuts() {
    ScriptedPrinter printer{{}, ScriptedPrinter::grayscale()};
    launchWith(printer.port(), {{u"Illumination"_s, 2000}});
    PrintStation peer = station();
    DcmDataset lut = invertingLut();
    QCOMPARE(peer.request(CommandField::NCreate, UID_PresentationLUTSOPClass, "1.2.3.300", &lut).status, 0);
    QCOMPARE(peer.createSession().status, 0);
    const auto film = peer.createFilm("STANDARD\\1,2", {}, "1.2.3.200", "1.2.3.100", "1.2.3.300");
    const auto boxes = film.references(DCM_ReferencedImageBoxSequence);
    PrintImage image{
        .rows = 1, .columns = 2, .allocated = 8, .stored = 8, .pixels = QByteArray::fromHex("01ff")};
    QCOMPARE(peer.setImage(boxes.at(0), 1, image).status, 0);
    image.interpretation = "MONOCHROME1";
    QCOMPARE(peer.setImage(boxes.at(1), 2, image).status, 0);
    QCOMPARE(peer.printFilm().status, 0);
    EVENTUALLY(areAll(Done, 1));
    const auto images = printer.requests(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass);
    QCOMPARE(images.at(0).pixels.toHex(), QByteArray{"ef0f0f00"});  // 4095 - 16, 4095 - 255 * 16
    QCOMPARE(images.at(1).pixels.toHex(), QByteArray{"1f00ff0f"});  // of 254 and 0
    const auto sent = printer.requests(CommandField::NCreate, UID_BasicFilmBoxSOPClass).at(0).attributes;
    QVERIFY(!sent.has(DCM_Illumination) && !sent.has(DCM_ReferencedPresentationLUTSequence));
}

void FilmContentTest::sendsLutsWhereTheyAreTaken() {
    ScriptedPrinter printer;
    launchWith(printer.port(), {{u"Illumination"_s, 2000}, {u"Reflection"_s, 10}});
    PrintStation peer = station();
    DcmDataset lut = invertingLut();
    QCOMPARE(peer.request(CommandField::NCreate, UID_PresentationLUTSOPClass, "1.2.3.300", &lut).status, 0);
    QCOMPARE(peer.createSession().status, 0);
    const auto film = peer.createFilm("STANDARD\\1,1", {}, "1.2.3.200", "1.2.3.100", "1.2.3.300");
    QCOMPARE(peer.setImage(film.references(DCM_ReferencedImageBoxSequence).at(0), 1, PrintImage::eightBits())
                 .status,
             0);
    QCOMPARE(peer.printFilm().status, 0);
    EVENTUALLY(areAll(Done, 1));
    const auto luts = printer.requests(CommandField::NCreate, UID_PresentationLUTSOPClass);
    QCOMPARE(luts.size(), 1U);
    const auto values = luts.at(0).attributes.items(DCM_PresentationLUTSequence)->at(0).numbers(DCM_LUTData);
    QCOMPARE(values.size(), 4096U);  // for the 12 bits that the pixels have now
    QCOMPARE(values.front(), 4095);
    QCOMPARE(values.back(), 4095 - 255 * 16);
    const auto sent = printer.requests(CommandField::NCreate, UID_BasicFilmBoxSOPClass).at(0).attributes;
    QCOMPARE(sent.text(DCM_Illumination).value_or(""), std::string{"2000"});
    QCOMPARE(sent.text(DCM_ReflectedAmbientLight).value_or(""), std::string{"10"});
    QCOMPARE(sent.textInItem(DCM_ReferencedPresentationLUTSequence, DCM_ReferencedSOPInstanceUID),
             luts.at(0).command.sopInstanceUid());
}

void FilmContentTest::sendsAnnotations_data() {
    QTest::addColumn<bool>("isTaken");
    QTest::newRow("taken") << true;
    QTest::newRow("not taken") << false;
}

void FilmContentTest::sendsAnnotations() {
    QFETCH(const bool, isTaken);
    ScriptedPrinter printer{{}, isTaken ? ScriptedPrinter::everything() : ScriptedPrinter::grayscale()};
    launchWith(printer.port());
    PrintStation peer = station();
    QCOMPARE(peer.createSession().status, 0);
    const auto film = peer.createFilm("STANDARD\\1,1", {{DCM_AnnotationDisplayFormatID, "LABEL"}});
    const auto annotations = film.references(DCM_ReferencedBasicAnnotationBoxSequence);
    QVERIFY(annotations.size() > 2);
    for (const int position : {1, 3}) {
        DcmDataset text;
        text.putAndInsertUint16(DCM_AnnotationPosition, static_cast<Uint16>(position));
        text.putAndInsertString(DCM_TextString, "DOE^JANE");
        QCOMPARE(peer.request(CommandField::NSet, UID_BasicAnnotationBoxSOPClass,
                              annotations.at(static_cast<std::size_t>(position - 1)), &text)
                     .status,
                 0);
    }
    QCOMPARE(peer.setImage(film.references(DCM_ReferencedImageBoxSequence).at(0), 1).status, 0);
    QCOMPARE(peer.printFilm().status, 0);
    EVENTUALLY(areAll(Done, 1));
    const auto sent = printer.requests(CommandField::NSet, UID_BasicAnnotationBoxSOPClass);
    QCOMPARE(sent.size(), isTaken ? 1U : 0U);  // the printer has two boxes
    if (isTaken)
        QCOMPARE(sent.at(0).attributes.text(DCM_TextString).value_or(""), std::string{"DOE^JANE"});
    QVERIFY(daemon_->log().contains(u"annotations are left out"_s));
    QVERIFY(!daemon_->log().contains(u"DOE"_s));
}

}  // namespace

QTEST_GUILESS_MAIN(FilmContentTest)
#include "tst_filmcontent.moc"
