#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmdata/dcvrsl.h>

#include "tests/tessalyd/forwarding/composing/ComposingTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

/// Presentation states that are moved with their images, and functional groups.
class ComposedStatesTest : public ComposingTest {
    Q_OBJECT

  private Q_SLOTS:
    void turnsAndCuts_data();
    void turnsAndCuts();
    void takesTheStatesWindow();
    void takesThePresentationTable();
    void hidesBehindShutters_data();
    void hidesBehindShutters();
    void leavesOtherImagesAndFrames();
    void aStateAloneFails();
    void eachFrameHasItsWindow();

  private:
    using Change = std::function<void(DcmDataset&)>;
    /// A state of the picture, or of one of its frames.
    void storeState(const Picture& picture, const Change& change, const char* frame = nullptr) const;
    /// What a film of one image has.
    [[nodiscard]] static QByteArray only(const ScriptedPrinter& printer) {
        return filmsOf(printer).at(0).boxes.value(1);
    }
    static const Picture ThePicture;
};

const Picture ComposedStatesTest::ThePicture{.rows = 9, .columns = 6, .centre = 2000, .width = 1500};

DcmItem& itemIn(DcmItem& set, const DcmTagKey& sequence, long number = 0) {
    DcmItem* item = nullptr;
    if (set.findOrCreateSequenceItem(sequence, item, number).bad())
        throw std::runtime_error{"no item"};
    return *item;
}

void refer(DcmItem& item, const Picture& picture, const char* frame) {
    DcmItem& reference = itemIn(item, DCM_ReferencedImageSequence);
    reference.putAndInsertString(DCM_ReferencedSOPClassUID, picture.sopClass.c_str());
    reference.putAndInsertString(DCM_ReferencedSOPInstanceUID, picture.uid().c_str());
    if (frame != nullptr)
        reference.putAndInsertString(DCM_ReferencedFrameNumber, frame);
}

void putWindow(DcmItem& item, const char* centre, const char* width) {
    item.putAndInsertString(DCM_WindowCenter, centre);
    item.putAndInsertString(DCM_WindowWidth, width);
}

void ComposedStatesTest::storeState(const Picture& picture, const Change& change, const char* frame) const {
    DcmFileFormat file;
    DcmDataset& set = *file.getDataset();
    for (const auto& [tag, value] :
         {std::pair{DCM_SOPClassUID, UID_GrayscaleSoftcopyPresentationStateStorage},
          {DCM_SOPInstanceUID, "1.2.826.0.1.1.99.1"},
          {DCM_StudyInstanceUID, "1.2.826.0.1.1"},
          {DCM_SeriesInstanceUID, "1.2.826.0.1.1.99"},
          {DCM_PatientID, "P1"},
          {DCM_PatientName, "Doe^Jane"},
          {DCM_Modality, "PR"}})
        set.putAndInsertString(tag, value);
    DcmItem& series = itemIn(set, DCM_ReferencedSeriesSequence);
    series.putAndInsertString(DCM_SeriesInstanceUID, picture.series.c_str());
    refer(series, picture, frame);
    change(set);
    storeObject(file);
}

void ComposedStatesTest::turnsAndCuts_data() {
    QTest::addColumn<int>("rotation");
    QTest::addColumn<bool>("isFlipped");
    QTest::addColumn<bool>("isCut");
    for (const int rotation : {0, 90, 180, 270})
        for (const bool isFlipped : {false, true})
            for (const bool isCut : {false, true})
                QTest::addRow("%d%s%s", rotation, isFlipped ? ", flipped" : "", isCut ? ", cut" : "")
                    << rotation << isFlipped << isCut;
}

void ComposedStatesTest::turnsAndCuts() {
    QFETCH(const int, rotation);
    QFETCH(const bool, isFlipped);
    QFETCH(const bool, isCut);
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\1,1"_s);
    store({ThePicture});
    storeState(ThePicture, [&](DcmDataset& set) {
        putWindow(itemIn(set, DCM_SoftcopyVOILUTSequence), "2000", "1500");
        set.putAndInsertUint16(DCM_ImageRotation, static_cast<Uint16>(rotation));
        set.putAndInsertString(DCM_ImageHorizontalFlip, isFlipped ? "Y" : "N");
        set.putAndInsertString(DCM_PresentationLUTShape, "IDENTITY");
        if (!isCut)
            return;
        DcmItem& area = itemIn(set, DCM_DisplayedAreaSelectionSequence);
        refer(area, ThePicture, nullptr);
        // Columns 2 to 4, rows 3 to the end, and what lies beyond it.
        for (const auto& [tag, corner] :
             {std::pair{DCM_DisplayedAreaTopLeftHandCorner, std::array<Sint32, 2>{2, 3}},
              {DCM_DisplayedAreaBottomRightHandCorner, std::array<Sint32, 2>{4, 50}}}) {
            auto element = std::make_unique<DcmSignedLong>(tag);
            element->putSint32Array(corner.data(), 2);
            area.insert(element.release());
        }
    });
    const Retrieved moved = move();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, 2, 0, 0}));
    EVENTUALLY(areAll(2, 1));
    // Turned step by step, a quarter at a time.
    std::vector<std::vector<int>> pixels;
    for (int row = isCut ? 2 : 0; row < 9; ++row) {
        pixels.emplace_back();
        for (int column = isCut ? 1 : 0; column < (isCut ? 4 : 6); ++column)
            pixels.back().push_back(ThePicture.gray(0, row, column));
    }
    for (int turned = 0; turned < rotation; turned += 90) {
        std::vector<std::vector<int>> next(pixels.front().size(), std::vector<int>(pixels.size()));
        for (std::size_t row = 0; row < pixels.size(); ++row)
            for (std::size_t column = 0; column < pixels.front().size(); ++column)
                next[column][pixels.size() - 1 - row] = pixels[row][column];
        pixels = next;
    }
    QByteArray expected;
    for (auto& row : pixels) {
        if (isFlipped)
            std::reverse(row.begin(), row.end());
        for (const int pixel : row)
            expected.append(static_cast<char>(pixel & 0xff)).append(static_cast<char>(pixel >> 8));
    }
    QCOMPARE(only(printer), expected);
    const auto image =
        printer.requests(tessaly::dicom::CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass).at(0);
    const auto* const items = image.attributes.items(DCM_BasicGrayscaleImageSequence);
    QVERIFY(items != nullptr && items->size() == 1);
    QCOMPARE(std::size_t{items->at(0).number(DCM_Rows).value_or(0)}, pixels.size());
    QCOMPARE(std::size_t{items->at(0).number(DCM_Columns).value_or(0)}, pixels.front().size());
}

void ComposedStatesTest::takesTheStatesWindow() {
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\1,1"_s);
    store({ThePicture});
    storeState(ThePicture, [](DcmDataset& set) {
        set.putAndInsertString(DCM_RescaleSlope, "2");
        set.putAndInsertString(DCM_RescaleIntercept, "-100");
        set.putAndInsertString(DCM_RescaleType, "US");
        putWindow(itemIn(set, DCM_SoftcopyVOILUTSequence), "3000", "2500");
        set.putAndInsertString(DCM_PresentationLUTShape, "INVERSE");
        itemIn(set, DCM_GraphicAnnotationSequence).putAndInsertString(DCM_GraphicLayer, "TOP");
        set.putAndInsertString(DCM_ShutterShape, "POLYGONAL");
    });
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 1));
    Picture as = ThePicture;
    as.slope = 2;
    as.intercept = -100;
    as.centre = 3000;
    as.width = 2500;
    as.photometric = "MONOCHROME1";
    QCOMPARE(only(printer), as.onFilm(0));
    QVERIFY(daemon_->log().contains(u"what is not printed: graphic annotations, a polygonal shutter"_s));
}

void ComposedStatesTest::takesThePresentationTable() {
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\1,1"_s);
    Picture picture = ThePicture;
    picture.allocated = picture.stored = 8;
    picture.centre.reset();
    picture.width.reset();
    store({picture});
    std::vector<Uint16> table(4096);
    for (std::size_t i = 0; i < table.size(); ++i)
        table[i] = static_cast<Uint16>(i * i / 4096);
    storeState(picture, [&](DcmDataset& set) {
        putWindow(itemIn(set, DCM_SoftcopyVOILUTSequence), "128", "256");
        DcmItem& lut = itemIn(set, DCM_PresentationLUTSequence);
        const std::array<Uint16, 3> descriptor{4096, 0, 12};
        lut.putAndInsertUint16Array(DcmTag{DCM_LUTDescriptor, EVR_US}, descriptor.data(), 3);
        lut.putAndInsertUint16Array(DcmTag{DCM_LUTData, EVR_US}, table.data(), table.size());
    });
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 1));
    QByteArray expected;
    for (int row = 0; row < picture.rows; ++row)
        for (int column = 0; column < picture.columns; ++column) {
            const double seen = picture.value(0, row, column) / 255.0;  // by LINEAR, 128 and 256
            const int pixel = table.at(static_cast<std::size_t>(std::floor(seen * 4095 + 0.5)));
            expected.append(static_cast<char>(pixel & 0xff)).append(static_cast<char>(pixel >> 8));
        }
    QCOMPARE(only(printer), expected);
}

void ComposedStatesTest::hidesBehindShutters_data() {
    QTest::addColumn<bool>("isOfState");
    QTest::newRow("of the image") << false;
    QTest::newRow("of a state") << true;
}

void ComposedStatesTest::hidesBehindShutters() {
    QFETCH(const bool, isOfState);
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\1,1"_s);
    const auto put = [](DcmDataset& set) {
        for (const auto& [tag, value] : {std::pair{DCM_ShutterShape, "RECTANGULAR\\CIRCULAR"},
                                         {DCM_ShutterLeftVerticalEdge, "2"},
                                         {DCM_ShutterRightVerticalEdge, "5"},
                                         {DCM_ShutterUpperHorizontalEdge, "3"},
                                         {DCM_ShutterLowerHorizontalEdge, "9"},
                                         {DCM_CenterOfCircularShutter, "5\\3"},
                                         {DCM_RadiusOfCircularShutter, "3"}})
            set.putAndInsertString(tag, value);
        set.putAndInsertUint16(DCM_ShutterPresentationValue, 32768);
    };
    auto object = ThePicture.object();
    if (!isOfState)
        put(*object->getDataset());
    storeObject(*object);
    if (isOfState)
        storeState(ThePicture, [&](DcmDataset& set) {
            putWindow(itemIn(set, DCM_SoftcopyVOILUTSequence), "2000", "1500");
            put(set);
        });
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 1));
    QByteArray expected;
    for (int row = 1; row <= ThePicture.rows; ++row)
        for (int column = 1; column <= ThePicture.columns; ++column) {
            const bool isSeen =
                column >= 2 && column <= 5 && row >= 3 && row <= 9 && std::hypot(row - 5, column - 3) <= 3;
            const int pixel = isSeen ? ThePicture.gray(0, row - 1, column - 1) : 2048;
            expected.append(static_cast<char>(pixel & 0xff)).append(static_cast<char>(pixel >> 8));
        }
    QCOMPARE(only(printer), expected);
}

void ComposedStatesTest::leavesOtherImagesAndFrames() {
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\2,2"_s);
    Picture frames = ThePicture;
    frames.frames = 3;
    Picture other = ThePicture;
    other.number = 2;
    store({frames, other});
    storeState(
        frames,
        [](DcmDataset& set) {
            putWindow(itemIn(set, DCM_SoftcopyVOILUTSequence), "1000", "700");
            set.putAndInsertString(DCM_PresentationLUTShape, "IDENTITY");
        },
        "2");
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 1));
    const auto film = filmsOf(printer).at(0);
    Picture second = frames;
    second.centre = 1000;
    second.width = 700;
    QCOMPARE(film.boxes.value(1), frames.onFilm(0));
    QCOMPARE(film.boxes.value(2), second.onFilm(1));
    QCOMPARE(film.boxes.value(3), frames.onFilm(2));
    QCOMPARE(film.boxes.value(4), other.onFilm(0));
}

void ComposedStatesTest::aStateAloneFails() {
    launchFor(unusedPort(), u"STANDARD\\2,2"_s);
    Picture absent = ThePicture;
    absent.number = 77;
    store({ThePicture});
    storeState(absent, [](DcmDataset&) {});
    const Retrieved moved = move();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.failed, QStringList{u"1.2.826.0.1.1.99.1"_s});
    QCOMPARE(jobs().size(), 1);
}

void ComposedStatesTest::eachFrameHasItsWindow() {
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\2,2"_s);
    Picture picture = ThePicture;
    picture.frames = 3;
    auto object = picture.object();
    DcmDataset& set = *object->getDataset();
    DcmItem& shared =
        itemIn(itemIn(set, DCM_SharedFunctionalGroupsSequence), DCM_PixelValueTransformationSequence);
    shared.putAndInsertString(DCM_RescaleSlope, "0.5");
    shared.putAndInsertString(DCM_RescaleIntercept, "10");
    for (long frame = 0; frame < 3; ++frame) {
        DcmItem& group =
            itemIn(itemIn(set, DCM_PerFrameFunctionalGroupsSequence, frame), DCM_FrameVOILUTSequence);
        putWindow(group, std::to_string(500 + 200 * frame).c_str(), "900");
        group.putAndInsertString(DCM_VOILUTFunction, "SIGMOID");
    }
    storeObject(*object);
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 1));
    for (int frame = 0; frame < 3; ++frame) {
        Picture as = picture;
        as.slope = 0.5;
        as.intercept = 10;
        as.centre = 500 + 200 * frame;
        as.width = 900;
        as.function = "SIGMOID";
        QCOMPARE(filmsOf(printer).at(0).boxes.value(frame + 1), as.onFilm(frame));
    }
}

}  // namespace

QTEST_GUILESS_MAIN(ComposedStatesTest)
#include "tst_composedstates.moc"
