#include <dcmtk/dcmdata/dcuid.h>

#include <QDir>
#include <QFile>

#include "tests/dicom/net/Peers.h"
#include "tests/tessalyd/forwarding/composing/ComposingTest.h"
#include "tests/tessalyd/services/print/PrintTools.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::dicom::CommandField;

namespace {

/// Studies on films, and what their requestor is told.
class ComposedFilmsTest : public ComposingTest {
    Q_OBJECT

  private Q_SLOTS:
    void aStudyInTheOrderOfItsNumbers();
    void everyStudyBeginsAFilm();
    void theRowSaysTheRest();
    void textsAreLeftOutWhereThePrinterRefusesThem();
    void whoMayNotPrintIsRefused();
    void theAnswerWaitsForTheQueueAlone();
    void whatCannotBePrintedFails();
    void allThatFailsMakesNoFilm();
    void aFullQueueRefusesAll();
    void aQueueThatCannotBeWrittenRefusesAll();
    void anotherProductMovesAndAnotherPrints();

  private:
    /// Small ones, each with a window.
    static std::vector<Picture> pictures(int count);
    [[nodiscard]] static QString uidOf(const Picture& picture) {
        return QString::fromStdString(picture.uid());
    }
};

std::vector<Picture> ComposedFilmsTest::pictures(int count) {
    std::vector<Picture> all;
    for (int i = 1; i <= count; ++i)
        all.push_back({.number = i, .centre = 2000, .width = 1500});
    return all;
}

void ComposedFilmsTest::aStudyInTheOrderOfItsNumbers() {
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\2,2"_s);
    std::vector<Picture> pictures;
    for (const auto& [series, number] : {std::pair{2, 1}, {1, 10}, {1, 9}, {2, 3}, {2, 2}, {10, 1}})
        pictures.push_back({.series = "1.2.826.0.1.1." + std::to_string(20 - series),
                            .seriesNumber = series,
                            .number = number,
                            .centre = 2000,
                            .width = 1500});
    store(pictures);
    const Retrieved moved = move();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, 6, 0, 0}));
    EVENTUALLY(areAll(2, 2));
    const auto films = filmsOf(printer);
    QCOMPARE(films.size(), 2U);
    QCOMPARE(films.at(0).boxes.size(), 4);
    QCOMPARE(films.at(0).boxes.value(1), pictures.at(2).onFilm(0));
    QCOMPARE(films.at(0).boxes.value(2), pictures.at(1).onFilm(0));
    QCOMPARE(films.at(0).boxes.value(3), pictures.at(0).onFilm(0));
    QCOMPARE(films.at(0).boxes.value(4), pictures.at(4).onFilm(0));
    QCOMPARE(films.at(1).boxes.value(1), pictures.at(3).onFilm(0));
    QCOMPARE(films.at(1).boxes.value(2), pictures.at(5).onFilm(0));
    // The printer has two boxes for texts.
    QCOMPARE(films.at(0).texts, (QStringList{u"Doe^Jane  P1"_s, u"Whole body  20260102"_s}));
    EVENTUALLY(spooled().isEmpty());
}

void ComposedFilmsTest::everyStudyBeginsAFilm() {
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\2,2"_s);
    std::vector<Picture> all;
    for (const char* study : {"1.2.3.1", "1.2.3.2", "1.2.3.3"})
        for (int number : {1, 2, 3, 4, 5})
            if (number < 5 || std::string{study} == "1.2.3.2")
                all.push_back({.study = study, .series = study + std::string{".7"}, .number = number});
    store(all);
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::MovePatientRoot, "PATIENT", {{DCM_PatientID, "P1"}}, "FILM");
    const Retrieved moved = viewer.collect();
    viewer.release();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, 13, 0, 0}));
    EVENTUALLY(areAll(2, 4));
    QList<qsizetype> sizes;
    for (const PrintedFilm& film : filmsOf(printer))
        sizes << film.boxes.size();
    QCOMPARE(sizes, (QList<qsizetype>{4, 4, 1, 4}));
}

void ComposedFilmsTest::theRowSaysTheRest() {
    ScriptedPrinter printer;
    launchFor(printer.port(), u"ROW\\1,2"_s,
              {{u"FilmSize"_s, u"14INX17IN"_s},
               {u"Orientation"_s, u"LANDSCAPE"_s},
               {u"Medium"_s, u"BLUE FILM"_s},
               {u"Copies"_s, 3},
               {u"Polarity"_s, u"NORMAL"_s},
               {u"Illumination"_s, 2000}});
    store(pictures(3));
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 1));
    const auto session = printer.requests(CommandField::NCreate, UID_BasicFilmSessionSOPClass).at(0);
    QCOMPARE(session.attributes.text(DCM_MediumType).value_or(""), std::string{"BLUE FILM"});
    QCOMPARE(session.attributes.text(DCM_NumberOfCopies).value_or(""), std::string{"3"});
    QCOMPARE(session.calling, std::string{"TESSALY"});
    const auto film = printer.requests(CommandField::NCreate, UID_BasicFilmBoxSOPClass).at(0);
    QCOMPARE(film.attributes.text(DCM_ImageDisplayFormat).value_or(""), std::string{"ROW\\1,2"});
    QCOMPARE(film.attributes.text(DCM_FilmSizeID).value_or(""), std::string{"14INX17IN"});
    QCOMPARE(film.attributes.text(DCM_FilmOrientation).value_or(""), std::string{"LANDSCAPE"});
    QCOMPARE(film.attributes.number(DCM_Illumination).value_or(0), std::uint16_t{2000});
    const auto lut = printer.requests(CommandField::NCreate, UID_PresentationLUTSOPClass).at(0);
    QCOMPARE(lut.attributes.text(DCM_PresentationLUTShape).value_or(""), std::string{"IDENTITY"});
    // No layout is one image a film.
    daemon_->database.run(u"UPDATE Printers SET Layout=NULL"_s);
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 4));
}

void ComposedFilmsTest::textsAreLeftOutWhereThePrinterRefusesThem() {
    ScriptedPrinter printer{[](const ScriptedPrinter::Request& request) {
        const bool isRefused = request.is(CommandField::NCreate, UID_BasicFilmBoxSOPClass) &&
                               request.attributes.has(DCM_AnnotationDisplayFormatID);
        return ScriptedPrinter::Answer{.status = static_cast<std::uint16_t>(isRefused ? 0x0106 : 0)};
    }};
    launchFor(printer.port(), u"STANDARD\\1,1"_s, {{u"FilmSize"_s, u"14INX17IN"_s}});
    store(pictures(1));
    QCOMPARE(move().status, 0);
    EVENTUALLY(areAll(2, 1));
    const auto films = printer.requests(CommandField::NCreate, UID_BasicFilmBoxSOPClass);
    QCOMPARE(films.size(), 2U);
    QCOMPARE(films.at(1).attributes.text(DCM_FilmSizeID).value_or(""), std::string{"14INX17IN"});
    QVERIFY(daemon_->log().contains(u"once more without boxes for annotations"_s));
}

void ComposedFilmsTest::whoMayNotPrintIsRefused() {
    launchFor(unusedPort(), u"STANDARD\\1,1"_s);
    store(pictures(1));
    const Retrieved reader = move(Study, "FILM", "READER");
    QCOMPARE(reader.status, 0x0124);
    QVERIFY(!reader.comment.empty());
    QVERIFY(daemon_->log().contains(u"no node with this AE title may print"_s));
    QCOMPARE(move(Study, "FILM", "STATION").status, 0x0124);  // which may not query
    QCOMPARE(move(Study, "FILMS").status, 0xa801);
    QVERIFY(jobs().isEmpty());
    QVERIFY(spooled().isEmpty());
}

void ComposedFilmsTest::theAnswerWaitsForTheQueueAlone() {
    launchFor(unusedPort(), u"STANDARD\\1,2"_s, {}, {u"--first-retry"_s, u"1"_s});  // no printer is there
    store(pictures(3));
    const Retrieved moved = move();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, 3, 0, 0}));
    QCOMPARE(jobs().size(), 2);
    // What is queued does not need the archive any more.
    for (const QString& file : daemon_->files())
        if (!file.contains(u"/.spool/"_s))
            QVERIFY(QFile::remove(file));
    ScriptedPrinter printer;
    daemon_->database.run(u"UPDATE Printers SET Port=?"_s, {printer.port()});
    retryJobs();
    EVENTUALLY(areAll(2, 2));
    // One that is tried again may come behind the next.
    const auto films = filmsOf(printer);
    QVERIFY(std::any_of(films.begin(), films.end(), [](const PrintedFilm& film) {
        return film.boxes.value(1) == pictures(3).at(2).onFilm(0);
    }));
}

void ComposedFilmsTest::whatCannotBePrintedFails() {
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\3,3"_s);
    const auto good = pictures(4);
    store({good.at(0), good.at(3)});
    QStringList bad;
    const auto damaged = [&](int number, const std::function<void(DcmDataset&)>& damage) {
        Picture picture = good.at(0);
        picture.number = number;
        auto object = picture.object();
        damage(*object->getDataset());
        storeObject(*object);
        bad << uidOf(picture);
    };
    damaged(10, [](DcmDataset& set) { set.putAndInsertUint16(DCM_Rows, 65535); });
    damaged(11, [](DcmDataset& set) {
        set.putAndInsertUint16(DCM_Rows, 65535);
        set.putAndInsertUint16(DCM_Columns, 65535);
    });
    damaged(12, [](DcmDataset& set) { set.putAndInsertString(DCM_NumberOfFrames, "1000000"); });
    damaged(13, [](DcmDataset& set) { set.putAndInsertString(DCM_NumberOfFrames, "2"); });
    damaged(14, [](DcmDataset& set) { set.putAndInsertUint16(DCM_SamplesPerPixel, 3); });
    damaged(15,
            [](DcmDataset& set) { set.putAndInsertString(DCM_PhotometricInterpretation, "PALETTE COLOR"); });
    damaged(16, [](DcmDataset& set) { set.putAndInsertUint16(DCM_BitsStored, 0); });
    damaged(17, [](DcmDataset& set) { delete set.remove(DCM_PixelData); });
    damaged(18, [](DcmDataset& set) { set.putAndInsertUint16(DCM_HighBit, 60); });
    damaged(19, [](DcmDataset& set) { set.putAndInsertString(DCM_NumberOfFrames, "-1"); });
    damaged(20, [](DcmDataset& set) {
        set.putAndInsertString(DCM_SOPClassUID, UID_BasicTextSRStorage);
        delete set.remove(DCM_PixelData);
    });
    damaged(21, [](DcmDataset& set) { set.putAndInsertUint16(DCM_Columns, 0); });
    const Retrieved moved = move();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.counters, (Progress{-1, 2, static_cast<int>(bad.size()), 0}));
    QStringList failed = moved.failed;
    QCOMPARE(sorted(failed), sorted(bad));
    QVERIFY(daemon_->log().contains(u"it has no pixels to be printed"_s));
    EVENTUALLY(areAll(2, 1));
    const auto films = filmsOf(printer);
    // Their places are the next ones'.
    QCOMPARE(films.at(0).boxes.keys(), (QList<int>{1, 2}));
    QCOMPARE(films.at(0).boxes.value(2), good.at(3).onFilm(0));
    EVENTUALLY(spooled().isEmpty());
}

void ComposedFilmsTest::allThatFailsMakesNoFilm() {
    launchFor(unusedPort(), u"STANDARD\\3,3"_s);
    Picture picture;
    auto object = picture.object();
    object->getDataset()->putAndInsertUint16(DCM_Rows, 65535);
    storeObject(*object);
    const Retrieved moved = move();
    QCOMPARE(moved.status, 0xa702);
    QCOMPARE(moved.failed, QStringList{uidOf(picture)});
    QVERIFY(jobs().isEmpty());
    QVERIFY(spooled().isEmpty());
}

void ComposedFilmsTest::aFullQueueRefusesAll() {
    launchFor(unusedPort(), u"STANDARD\\1,1"_s);
    const auto all = pictures(3);
    store(all);
    fillQueue(998);
    const Retrieved refused = move();
    QCOMPARE(refused.status, 0xa702);
    QCOMPARE(refused.counters, (Progress{-1, 0, 3, 0}));
    QCOMPARE(refused.failed.size(), 3);
    QCOMPARE(jobs().size(), 998);
    QVERIFY(spooled().isEmpty());
    QVERIFY(daemon_->log().contains(u"the printer has 998 jobs already"_s));
    daemon_->database.run(u"DELETE FROM Job WHERE JobKey='998'"_s);
    QCOMPARE(move().status, 0);
    QCOMPARE(jobs().size(), 1000);
}

void ComposedFilmsTest::aQueueThatCannotBeWrittenRefusesAll() {
    launchFor(unusedPort(), u"STANDARD\\2,2"_s);
    const auto all = pictures(3);
    store(all);
    daemon_->database.failOn(u"Job"_s, u"INSERT"_s);
    const Retrieved refused = move();
    QCOMPARE(refused.status, 0xa702);
    QVERIFY(!refused.comment.empty());
    QCOMPARE(sorted(refused.failed), sorted({uidOf(all.at(0)), uidOf(all.at(1)), uidOf(all.at(2))}));
    QVERIFY(jobs().isEmpty());
    QVERIFY(spooled().isEmpty());
    daemon_->database.allow(u"Job"_s, u"INSERT"_s);
    QCOMPARE(move().status, 0);
    QCOMPARE(jobs().size(), 1);
}

void ComposedFilmsTest::anotherProductMovesAndAnotherPrints() {
    const Product printer{u"dcmprscp"_s,
                          QStringList{u"-c"_s, u"%FOLDER%/configuration"_s, u"-p"_s, u"PEER"_s},
                          QString{PrintToolsConfiguration}.replace(u"%TYPE%"_s, u"LOCALPRINTER"_s)};
    launchFor(printer.port(), u"STANDARD\\1,2"_s, {{u"FilmSize"_s, u"8INX10IN"_s}});
    const auto all = pictures(2);
    store(all);
    const Outcome said = run(u"movescu"_s, {u"-aet"_s, u"VIEWER"_s, u"-aec"_s, u"TESSALY"_s, u"-aem"_s,
                                            u"FILM"_s, u"-S"_s, u"-k"_s, u"QueryRetrieveLevel=STUDY"_s,
                                            u"-k"_s, u"StudyInstanceUID=%1"_s.arg(QLatin1StringView{Study}),
                                            u"localhost"_s, daemon_->port()});
    QVERIFY2(said.exitCode == 0, qPrintable(said.output));
    EVENTUALLY2(areAll(2, 1), qPrintable(daemon_->log()));
    const QDir folder{printer.folder()};
    QList<QByteArray> printed;
    for (const QString& name : folder.entryList({u"HG_*.dcm"_s}, QDir::Files)) {
        DcmFileFormat object;
        const Uint16* words = nullptr;
        unsigned long count = 0;
        QVERIFY(object.loadFile(folder.filePath(name).toLocal8Bit().constData()).good());
        QVERIFY(object.getDataset()->findAndGetUint16Array(DCM_PixelData, words, &count).good());
        printed << QByteArray{reinterpret_cast<const char*>(words), static_cast<qsizetype>(count * 2)};
    }
    QList<QByteArray> expected{all.at(0).onFilm(0), all.at(1).onFilm(0)};
    std::sort(printed.begin(), printed.end());
    std::sort(expected.begin(), expected.end());
    QCOMPARE(printed, expected);
}

}  // namespace

QTEST_GUILESS_MAIN(ComposedFilmsTest)
#include "tst_composedfilms.moc"
