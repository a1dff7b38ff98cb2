#include <dcmtk/dcmdata/dcuid.h>

#include "tests/tessalyd/forwarding/composing/ComposingTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::dicom::CommandField;

namespace {

/// Studies on films, and what their requestor is told.
class ComposedFilmsTest : public ComposingTest {
    Q_OBJECT

  private Q_SLOTS:
    void aStudyInTheOrderOfItsNumbers();
};

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
    QCOMPARE(films.at(0).texts, (QStringList{u"Doe^Jane  P1"_s, u"Whole body  20260102"_s}));
}

}  // namespace

QTEST_GUILESS_MAIN(ComposedFilmsTest)
#include "tst_composedfilms.moc"
