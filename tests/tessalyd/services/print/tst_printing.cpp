#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include "tests/tessalyd/services/print/PrintTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::dicom::CommandField;

namespace {

/// Films on their way from a station to a printer: what arrives, and what the station is told.
class PrintingTest : public PrintTest {
    Q_OBJECT

  private Q_SLOTS:
    void printsAFilm();
    void fillsInFromTheRow();
    void reportsEachChange();
};

void PrintingTest::printsAFilm() {
    ScriptedPrinter printer;
    launchWith(printer.port());
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\2,2").status, 0);
    EVENTUALLY(areAll(2, 1));
    peer.release();
    QCOMPARE(printer.prints(), 1);
    const auto images = printer.requests(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass);
    QCOMPARE(images.size(), 4U);
    for (const auto& image : images)
        QCOMPARE(image.pixels, PrintImage{}.content());
    QCOMPARE(printer.requests().front().calling, std::string{"TESSALY"});
    QCOMPARE(printer.requests().front().called, std::string{"PRINTER"});
    EVENTUALLY(spooled().isEmpty());
}

void PrintingTest::fillsInFromTheRow() {
    ScriptedPrinter printer;
    launchWith(printer.port(), {{u"Medium"_s, u"BLUE FILM"_s},
                                {u"Copies"_s, 3},
                                {u"FilmSize"_s, u"14INX17IN"_s},
                                {u"MaxDensity"_s, 310},
                                {u"UserParams"_s, u"CS=1"_s},
                                {u"Polarity"_s, u"REVERSE"_s}});
    PrintStation peer = station();
    const auto session = peer.createSession({{DCM_NumberOfCopies, "2"}});
    QCOMPARE(session.status, 0);
    QCOMPARE(session.text(DCM_NumberOfCopies), u"2"_s);
    QCOMPARE(session.text(DCM_MediumType), u"BLUE FILM"_s);
    QCOMPARE(session.text(DCM_PrintPriority), u"MED"_s);
    const auto film = peer.createFilm("STANDARD\\1,1", {{DCM_FilmSizeID, "A3"}});
    QCOMPARE(film.text(DCM_FilmSizeID), u"A3"_s);
    QCOMPARE(film.text(DCM_MaxDensity), u"310"_s);
    QCOMPARE(peer.setImage(film.references(DCM_ReferencedImageBoxSequence).at(0), 1).status, 0);
    QCOMPARE(peer.printFilm().status, 0);
    EVENTUALLY(areAll(2, 1));
    const auto sent = printer.requests(CommandField::NCreate, UID_BasicFilmSessionSOPClass).at(0).attributes;
    QCOMPARE(sent.text(DCM_NumberOfCopies).value_or(""), std::string{"2"});
    QCOMPARE(sent.text(DCM_MediumType).value_or(""), std::string{"BLUE FILM"});
    QVERIFY(!sent.has(DCM_PrintPriority));
    const auto box = printer.requests(CommandField::NCreate, UID_BasicFilmBoxSOPClass).at(0).attributes;
    QCOMPARE(box.text(DCM_FilmSizeID).value_or(""), std::string{"A3"});
    QCOMPARE(box.text(DCM_MaxDensity).value_or(""), std::string{"310"});
    QCOMPARE(box.text(DCM_ConfigurationInformation).value_or(""), std::string{"CS=1"});
    const auto image =
        printer.requests(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass).at(0).attributes;
    QCOMPARE(image.text(DCM_Polarity).value_or(""), std::string{"REVERSE"});
}

void PrintingTest::reportsEachChange() {
    ScriptedPrinter printer;
    launchWith(printer.port());
    PrintStation peer = station();
    const auto answer = peer.printAll("STANDARD\\1,1");
    QCOMPARE(answer.status, 0);
    const auto jobs = answer.references(DcmTagKey{0x2100, 0x0500});
    QCOMPARE(jobs.size(), 1U);
    for (const int type : {1, 2, 3}) {
        const auto event = peer.nextEvent(0x0110);  // whatever it is answered
        QVERIFY(event.has_value());
        QCOMPARE(event->type, type);
        QCOMPARE(event->instance, jobs.front());
    }
    const auto job = peer.request(CommandField::NGet, UID_PrintJobSOPClass, jobs.front());
    QCOMPARE(job.status, 0);
    QCOMPARE(job.text(DCM_ExecutionStatus), u"DONE"_s);
    peer.release();
}

}  // namespace

QTEST_GUILESS_MAIN(PrintingTest)
#include "tst_printing.moc"
