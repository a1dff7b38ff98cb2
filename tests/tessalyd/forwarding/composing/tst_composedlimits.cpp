#include <dcmtk/dcmdata/dcuid.h>

#include <QElapsedTimer>
#include <QFile>

#include "tests/tessalyd/Encapsulated.h"
#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/SmallDisk.h"
#include "tests/tessalyd/forwarding/composing/ComposingTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

/// What composing may take, and what ends it.
class ComposedLimitsTest : public ComposingTest {
    Q_OBJECT

  private Q_SLOTS:
    void moreFilmsThanOneMoveMayHave();
    void moreInstancesThanOneMoveMayHave();
    void aFrameThatIsTooLarge();
    void aFullDisk();
    void aFilmTakesNoMoreMemory();
    void aCancelLeavesNothing();
    void aRequestorThatVanishesLeavesNothing();
    void terminateEndsIt();
    void whatIsQueuedBeforeACancelIsPrinted();

  private:
    /// Stores an image whose decoding takes long, behind the others of the study.
    void storeSlow() const;
    /// A process decodes now.
    [[nodiscard]] bool isDecoding() const;
    [[nodiscard]] bool hasLeftNothing() const { return spooled().isEmpty() && jobs().isEmpty(); }
};

void ComposedLimitsTest::storeSlow() const {
    ImageSpec slow;
    const QByteArray object = manyLargeFrames(slow, 127);
    const std::vector<RequestorAssociation::Context> contexts{
        {.abstractSyntax = UID_VerificationSOPClass,
         .transferSyntaxes = {UID_LittleEndianImplicitTransferSyntax}},
        {.abstractSyntax = UID_CTImageStorage, .transferSyntaxes = {UID_JPEGLSLosslessTransferSyntax}}};
    RequestorAssociation peer{daemon_->port(), "TESTER", "TESSALY", contexts};
    const auto answer =
        peer.storeBytes(slow.object.instance, {object.data(), static_cast<std::size_t>(object.size())});
    QCOMPARE(answer.status, 0);
    peer.release();
}

bool ComposedLimitsTest::isDecoding() const {
    const auto decoders = childrenOf(daemon_->process.processId());
    return std::any_of(decoders.begin(), decoders.end(),
                       [](int decoder) { return !childrenOf(decoder).isEmpty(); });
}

void ComposedLimitsTest::moreFilmsThanOneMoveMayHave() {
    launchFor(unusedPort(), u"STANDARD\\1,1"_s);
    store({{.number = 1, .rows = 2, .columns = 2, .frames = 150}});
    QCOMPARE(move().status, 0);
    QCOMPARE(jobs().size(), 150);
    store({{.number = 2, .rows = 2, .columns = 2, .frames = 51}});
    const Retrieved refused = move();
    QCOMPARE(refused.status, 0xa702);
    QCOMPARE(refused.failed.size(), 2);
    QCOMPARE(jobs().size(), 150);
    QVERIFY(daemon_->log().contains(u"201 films are more than one move may have"_s));
}

void ComposedLimitsTest::moreInstancesThanOneMoveMayHave() {
    launchFor(unusedPort(), u"STANDARD\\5,7"_s);
    store({Picture{}});
    // Rows alone: they are counted before any file is opened.
    daemon_->database.run(
        u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, TransferSyntaxUID) "
        u"WITH "
        "RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<20000) SELECT '1.2.9.'||i, "
        "'1.2.826.0.1.1.1', 'none', '1.2.840.10008.5.1.4.1.1.2', '1.2.840.10008.1.2.1' FROM n"_s);
    const Retrieved refused = move();
    QCOMPARE(refused.status, 0xa702);
    QCOMPARE(refused.counters, (Progress{-1, 0, 20001, 0}));
    QVERIFY(hasLeftNothing());
    QVERIFY(daemon_->log().contains(u"more instances than one move may bring"_s));
}

void ComposedLimitsTest::aFrameThatIsTooLarge() {
    launchFor(unusedPort(), u"STANDARD\\1,1"_s);
    // 36 million pixels: 36 MB here, and 72 MB on a film.
    store({{.number = 1, .rows = 6000, .columns = 6000, .allocated = 8, .stored = 8}, {.number = 2}});
    const Retrieved moved = move();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.counters, (Progress{-1, 1, 1, 0}));
    QVERIFY(daemon_->log().contains(u"it has more than 64 MB"_s));
    QCOMPARE(jobs().size(), 1);
}

void ComposedLimitsTest::aFullDisk() {
    daemon_ = std::make_unique<Daemon>();
    QDir{}.mkpath(daemon_->database.imageRoot());
    giveSmallDisk(daemon_->process, daemon_->database.imageRoot(), 4096);
    prepareFor(unusedPort(), u"STANDARD\\2,2"_s);
    daemon_->launch();
    // 2 MB of 8 bits each, 1 MB of them a frame; on the film they are twice as much.
    store({{.number = 1, .rows = 1000, .columns = 1000, .allocated = 8, .stored = 8},
           {.number = 2, .rows = 1000, .columns = 1000, .allocated = 8, .stored = 8}});
    const Retrieved refused = move();
    QCOMPARE(refused.status, 0xa702);
    QCOMPARE(refused.failed.size(), 2);
    QVERIFY(jobs().isEmpty());
    const QString seen =
        u"/proc/%1/root%2/.spool"_s.arg(daemon_->process.processId()).arg(daemon_->database.imageRoot());
    QVERIFY(QDir{seen}.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).isEmpty());
    // With room for it, it goes on.
    daemon_->database.run(u"UPDATE Printers SET Layout=?"_s, {u"STANDARD\\1,1"_s});
    daemon_->database.run(u"DELETE FROM Image WHERE SOPInstanceUID LIKE '%.2'"_s);
    QCOMPARE(move().status, 0);
    QCOMPARE(jobs().size(), 1);
}

void ComposedLimitsTest::aFilmTakesNoMoreMemory() {
    launchFor(unusedPort(), u"STANDARD\\8,8"_s);
    store({{.study = "1.2.3.1", .series = "1.2.3.1.1"}});
    QCOMPARE(move("1.2.3.1").status, 0);
    const auto process = daemon_->process.processId();
    Picture large{.rows = 1024, .columns = 1024, .frames = 8};  // 2 MB each
    for (int number = 1; number <= 8; ++number) {
        large.number = number;
        store({large});
    }
    const long long before = peakMemoryOf(process);
    const Retrieved moved = move();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, 8, 0, 0}));
    QCOMPARE(jobs().size(), 2);
    constexpr long long Most = 24 << 10;  // kilobytes, of 128 MB
    const long long grown = peakMemoryOf(process) - before;
    QVERIFY2(grown < Most, qPrintable(u"%1 KB more than %2 KB"_s.arg(grown).arg(before)));
    qInfo() << "peak" << before << "KB, with the film" << before + grown << "KB";
}

void ComposedLimitsTest::aCancelLeavesNothing() {
    launchFor(unusedPort(), u"STANDARD\\5,7"_s);
    storeSlow();
    Retriever viewer{daemon_->port()};
    const DIC_US id = viewer.ask(Retriever::MoveStudyRoot, "STUDY", {{DCM_StudyInstanceUID, Study}}, "FILM");
    EVENTUALLY(isDecoding());
    QVERIFY(!spooled().isEmpty());
    const RetrievalMessage pending = viewer.hear();
    QVERIFY(pending.isPending());
    QCOMPARE(pending.progress(), (Progress{1, 0, 0, 0}));
    viewer.cancel(Retriever::MoveStudyRoot, id);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xfe00);
    QCOMPARE(moved.counters, (Progress{1, 0, 0, 0}));
    QVERIFY(hasLeftNothing());
    EVENTUALLY(!isDecoding());
    viewer.release();
}

void ComposedLimitsTest::aRequestorThatVanishesLeavesNothing() {
    launchFor(unusedPort(), u"STANDARD\\5,7"_s);
    storeSlow();
    {
        Retriever viewer{daemon_->port()};
        viewer.ask(Retriever::MoveStudyRoot, "STUDY", {{DCM_StudyInstanceUID, Study}}, "FILM");
        EVENTUALLY(isDecoding());
        viewer.abort();
    }
    EVENTUALLY(!isDecoding() && hasLeftNothing());
}

void ComposedLimitsTest::terminateEndsIt() {
    launchFor(unusedPort(), u"STANDARD\\5,7"_s);
    storeSlow();
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::MoveStudyRoot, "STUDY", {{DCM_StudyInstanceUID, Study}}, "FILM");
    EVENTUALLY(isDecoding());
    // The decoder would go on for minutes.
    QElapsedTimer timer;
    timer.start();
    QVERIFY(daemon_->terminate());
    qInfo() << "ended after" << timer.elapsed() << "ms";
    QVERIFY(hasLeftNothing());
}

void ComposedLimitsTest::whatIsQueuedBeforeACancelIsPrinted() {
    ScriptedPrinter printer;
    launchFor(printer.port(), u"STANDARD\\1,2"_s);
    std::vector<Picture> pictures;
    for (int number = 2; number <= 4; ++number)  // the slow one is the first of its series
        pictures.push_back({.seriesNumber = -5, .number = number, .centre = 2000, .width = 1500});
    store(pictures);
    storeSlow();
    Retriever viewer{daemon_->port()};
    const DIC_US id = viewer.ask(Retriever::MoveStudyRoot, "STUDY", {{DCM_StudyInstanceUID, Study}}, "FILM");
    EVENTUALLY(jobs().size() == 1 && isDecoding());
    viewer.cancel(Retriever::MoveStudyRoot, id);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xfe00);
    QCOMPARE(moved.counters, (Progress{2, 2, 0, 0}));
    EVENTUALLY(areAll(2, 1));
    const auto films = filmsOf(printer);
    QCOMPARE(films.size(), 1U);
    QCOMPARE(films.at(0).boxes.value(2), pictures.at(1).onFilm(0));
    EVENTUALLY(spooled().isEmpty());
    viewer.release();
}

}  // namespace

QTEST_GUILESS_MAIN(ComposedLimitsTest)
#include "tst_composedlimits.moc"
