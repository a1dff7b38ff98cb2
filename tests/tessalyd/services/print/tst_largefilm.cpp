#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/services/print/PrintTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

/// A film that is larger than the server may be.
class LargeFilmTest : public PrintTest {
    Q_OBJECT

  private Q_SLOTS:
    void takesNoMoreMemory_data();
    void takesNoMoreMemory();
};

void LargeFilmTest::takesNoMoreMemory_data() {
    QTest::addColumn<int>("grid");
    QTest::newRow("as it is") << 0;
    QTest::newRow("made smaller") << 4096;
}

void LargeFilmTest::takesNoMoreMemory() {
    QFETCH(const int, grid);
    qsizetype taken = 0;
    ScriptedPrinter printer{[&taken](const ScriptedPrinter::Request& request) {
        taken += request.pixels.size();
        return ScriptedPrinter::Answer{};
    }};
    printer.keepsPixels = false;
    launchWith(printer.port(), {{u"GridSizeDx"_s, grid}, {u"GridSizeDy"_s, grid}});
    const auto process = daemon_->process.processId();
    {
        PrintStation peer = station();
        QCOMPARE(peer.printAll("STANDARD\\1,1").status, 0);
        EVENTUALLY(areAll(2, 1));
    }
    const long long before = peakMemoryOf(process);
    PrintStation peer = station();
    const PrintImage image{.rows = 1024, .columns = 1024};  // 2 MB
    QCOMPARE(peer.createSession().status, 0);
    const auto film = peer.createFilm("STANDARD\\8,8");
    int position = 0;
    for (const std::string& box : film.references(DCM_ReferencedImageBoxSequence))
        QCOMPARE(peer.setImage(box, ++position, image).status, grid == 0 ? 0 : 0xb604);
    QCOMPARE(position, 64);
    QCOMPARE(peer.printFilm().status, 0);
    EVENTUALLY(areAll(2, 2));
    const qsizetype side = grid == 0 ? image.rows : grid / 8;
    QCOMPARE(taken, 64 * side * side * 2 + PrintImage{}.content().size());
    constexpr long long Most = 24 << 10;  // kilobytes, of 128 MB
    const long long grown = peakMemoryOf(process) - before;
    QVERIFY2(grown < Most, qPrintable(u"%1 KB more than %2 KB"_s.arg(grown).arg(before)));
    qInfo() << "peak" << before << "KB, with the film" << before + grown << "KB";
}

}  // namespace

QTEST_GUILESS_MAIN(LargeFilmTest)
#include "tst_largefilm.moc"
