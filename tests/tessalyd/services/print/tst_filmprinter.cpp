#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include "tests/tessalyd/services/print/PrintTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::dicom::CommandField;

namespace {

using Request = ScriptedPrinter::Request;
using Answer = ScriptedPrinter::Answer;
using End = ScriptedPrinter::Answer::End;

enum State { Waiting = 0, Running = 1, Done = 2, GivenUp = 3, Uncertain = 4 };

bool isPrint(const Request& request) {
    return request.is(CommandField::NAction, UID_BasicFilmBoxSOPClass);
}
bool isImage(const Request& request) {
    return request.is(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass);
}

/// Printers of every kind, and what becomes of the jobs.
class FilmPrinterTest : public PrintTest {
    Q_OBJECT

  private Q_SLOTS:
    void takesAnswersByTheirClass_data();
    void takesAnswersByTheirClass();
    void leavesOutWhatIsOptional();
    void waitsForAPrinterThatFails();
    void answersEventsAtAnyMoment();
    void printsNothingWithTooFewBoxes();
    void retriesWhatWasLostBefore_data();
    void retriesWhatWasLostBefore();
    void neverPrintsAgainWhatIsUncertain_data();
    void neverPrintsAgainWhatIsUncertain();
    void goesOnBehindAPrintedFilm();
    void givesUpWhenThePrintersJobFails();
    void tellsFailureOfItsJobs();
    void readsItsRowWhenItBegins();

  private:
    static const QStringList Quick;
};

const QStringList FilmPrinterTest::Quick{u"--first-retry"_s, u"1"_s, u"--peer-timeout"_s, u"1"_s};

void FilmPrinterTest::takesAnswersByTheirClass_data() {
    QTest::addColumn<int>("field");
    QTest::addColumn<QString>("sopClass");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("state");  // of the job: Waiting where it is tried again
    const auto row = [](CommandField field, const char* sopClass, int status, int state) {
        QTest::addRow("%x %s %x", static_cast<unsigned>(field), sopClass, static_cast<unsigned>(status))
            << static_cast<int>(field) << QString::fromLatin1(sopClass) << status << state;
    };
    for (const int status : {0x0107, 0x0116, 0xb600, 0xb604}) {
        row(CommandField::NCreate, UID_BasicFilmSessionSOPClass, status, Done);
        row(CommandField::NAction, UID_BasicFilmBoxSOPClass, status, Done);
    }
    for (const int status : {0xc601, 0xc602, 0xc605, 0x0213}) {
        row(CommandField::NCreate, UID_BasicFilmBoxSOPClass, status, Waiting);
        row(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass, status, Waiting);
        row(CommandField::NAction, UID_BasicFilmBoxSOPClass, status, Waiting);
    }
    for (const int status : {0xc600, 0xc603, 0xc613, 0x0110, 0x0117, 0x0106}) {
        row(CommandField::NCreate, UID_BasicFilmSessionSOPClass, status, GivenUp);
        row(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass, status, GivenUp);
        row(CommandField::NAction, UID_BasicFilmBoxSOPClass, status, GivenUp);
    }
    row(CommandField::NGet, UID_PrinterSOPClass, 0x0110, Done);
    row(CommandField::NDelete, UID_BasicFilmSessionSOPClass, 0x0112, Done);
}

void FilmPrinterTest::takesAnswersByTheirClass() {
    QFETCH(const int, field);
    QFETCH(const QString, sopClass);
    QFETCH(const int, status);
    QFETCH(const int, state);
    const std::string wanted = sopClass.toStdString();
    ScriptedPrinter printer{[&](const Request& request) {
        const bool isIt = request.is(static_cast<CommandField>(field), wanted.c_str());
        return Answer{.status = static_cast<std::uint16_t>(isIt ? status : 0)};
    }};
    launchWith(printer.port());
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\1,1").status, 0);
    EVENTUALLY(areAll(state, 1) && (state != Waiting || !jobs().first().error.isEmpty()));
    const QString words = QString::number(status, 16).rightJustified(4, u'0').toUpper();
    if (state == Waiting || state == GivenUp)
        QVERIFY2(jobs().first().error.contains(words), qPrintable(jobs().first().error));
    else if (status != 0x0112)
        EVENTUALLY(daemon_->log().contains(words));
    if (state == GivenUp && field == static_cast<int>(CommandField::NSet))
        QCOMPARE(printer.prints(), 0);
}

void FilmPrinterTest::leavesOutWhatIsOptional() {
    ScriptedPrinter printer{[](const Request& request) {
        const bool isFilm = request.is(CommandField::NCreate, UID_BasicFilmBoxSOPClass);
        return Answer{.status = static_cast<std::uint16_t>(
                          isFilm && request.attributes.has(DCM_FilmSizeID) ? 0x0106 : 0)};
    }};
    launchWith(printer.port());
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\1,1", {}, {}, {{DCM_FilmSizeID, "A3"}}).status, 0);
    EVENTUALLY(areAll(Done, 1));
    const auto films = printer.requests(CommandField::NCreate, UID_BasicFilmBoxSOPClass);
    QCOMPARE(films.size(), 2U);
    QVERIFY(!films.at(1).attributes.has(DCM_FilmSizeID));
    QCOMPARE(films.at(1).attributes.text(DCM_ImageDisplayFormat).value_or(""), std::string{"STANDARD\\1,1"});
    QVERIFY(daemon_->log().contains(u"once more without the optional attributes"_s));
}

void FilmPrinterTest::waitsForAPrinterThatFails() {
    std::atomic<int> asked = 0;
    ScriptedPrinter printer{[&asked](const Request& request) {
        Answer answer;
        if (request.is(CommandField::NGet, UID_PrinterSOPClass))
            answer.printerStatus = ++asked == 1 ? "FAILURE" : "WARNING";
        return answer;
    }};
    launchWith(printer.port(), {}, Quick);
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\1,1").status, 0);
    EVENTUALLY(areAll(Done, 1));
    QCOMPARE(printer.associations(), 2);
    QVERIFY(daemon_->log().contains(u"the printer says FAILURE: SUPPLY LOW"_s));
    QVERIFY(daemon_->log().contains(u"it says WARNING: SUPPLY LOW"_s));
}

void FilmPrinterTest::answersEventsAtAnyMoment() {
    std::atomic<int> events = 0;
    ScriptedPrinter printer{[&events](const Request&) {
        events += 2;
        return Answer{.before = {{UID_PrinterSOPClass, 2, "SUPPLY LOW"}},
                      .after = {{UID_PrinterSOPClass, 1, "NORMAL"}}};
    }};
    launchWith(printer.port());
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\1,2").status, 0);
    EVENTUALLY(areAll(Done, 1));
    QVERIFY(daemon_->log().contains(u"it reports event 2: SUPPLY LOW"_s));
    // All but those that cross the end: the connection may close before the printer has read their answers.
    EVENTUALLY(static_cast<int>(printer.eventAnswers().size()) >= events - 3);
    for (const auto status : printer.eventAnswers())
        QCOMPARE(status, 0);
}

void FilmPrinterTest::printsNothingWithTooFewBoxes() {
    ScriptedPrinter printer{[](const Request&) { return Answer{.boxes = 3}; }};
    launchWith(printer.port());
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\2,2").status, 0);
    EVENTUALLY(areAll(GivenUp, 1));
    QCOMPARE(printer.prints(), 0);
    QVERIFY(jobs().first().error.contains(u"3 image boxes"_s));
}

void FilmPrinterTest::retriesWhatWasLostBefore_data() {
    QTest::addColumn<int>("end");
    QTest::addColumn<int>("request");
    for (const int request : {0, 1, 2, 3})
        for (const End end : {End::InPlaceOfAnswer, End::BehindAnswer, End::Silence})
            QTest::addRow("request %d, end %d", request, static_cast<int>(end))
                << static_cast<int>(end) << request;
}

void FilmPrinterTest::retriesWhatWasLostBefore() {
    QFETCH(const int, end);
    QFETCH(const int, request);
    std::atomic<int> count = 0;
    ScriptedPrinter printer{[&](const Request&) {
        return Answer{.end = count++ == request ? static_cast<End>(end) : End::None};
    }};
    launchWith(printer.port(), {}, Quick);
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\1,1").status, 0);
    EVENTUALLY(areAll(Done, 1) || areAll(Uncertain, 1));
    // Behind the answer to the last request before it, the print command may have been sent or not.
    if (request == 3 && end == static_cast<int>(End::BehindAnswer) && areAll(Uncertain, 1))
        return;
    QVERIFY(areAll(Done, 1));
    QCOMPARE(printer.prints(), 1);
    QCOMPARE(printer.associations(), 2);
}

void FilmPrinterTest::neverPrintsAgainWhatIsUncertain_data() {
    QTest::addColumn<int>("end");
    QTest::newRow("closes") << static_cast<int>(End::InPlaceOfAnswer);
    QTest::newRow("is silent") << static_cast<int>(End::Silence);
}

void FilmPrinterTest::neverPrintsAgainWhatIsUncertain() {
    QFETCH(const int, end);
    std::atomic<int> prints = 0;
    ScriptedPrinter printer{[&](const Request& request) {
        return Answer{.end = isPrint(request) && ++prints == 2 ? static_cast<End>(end) : End::None};
    }};
    launchWith(printer.port(), {}, Quick);
    PrintStation peer = station();
    QCOMPARE(peer.createSession().status, 0);
    for (const char* uid : {"1.2.3.200", "1.2.3.201", "1.2.3.202"}) {
        const auto film = peer.createFilm("STANDARD\\1,1", {}, uid);
        QCOMPARE(peer.setImage(film.references(DCM_ReferencedImageBoxSequence).at(0), 1).status, 0);
    }
    const auto answer = peer.printSession();
    QCOMPARE(answer.status, 0);
    EVENTUALLY(areAll(Uncertain, 1));
    QVERIFY2(jobs().first().error.startsWith(u"film 2 may have been printed"_s),
             qPrintable(jobs().first().error));
    const auto job = answer.references(DcmTagKey{0x2100, 0x0500}).at(0);
    QCOMPARE(peer.request(CommandField::NGet, UID_PrintJobSOPClass, job).text(DCM_ExecutionStatus),
             u"FAILURE"_s);
    peer.release();
    // Neither the time nor a new server has it printed.
    QVERIFY(daemon_->terminate());
    daemon_->launch(Quick);
    PrintStation other = station();
    QCOMPARE(other.printAll("STANDARD\\1,1").status, 0);
    EVENTUALLY(jobs().size() == 2 && jobs().at(1).state == Done);
    QCOMPARE(jobs().at(0).state, static_cast<int>(Uncertain));
    QCOMPARE(printer.prints(), 3);
    retryJobs();
    EVENTUALLY(areAll(Done, 2));
    QCOMPARE(printer.prints(), 5);  // the second again, and the third
    EVENTUALLY(spooled().filter(u"/print-"_s).isEmpty());
}

void FilmPrinterTest::goesOnBehindAPrintedFilm() {
    std::atomic<int> images = 0;
    ScriptedPrinter printer{[&](const Request& request) {
        return Answer{.end = isImage(request) && ++images == 2 ? End::InPlaceOfAnswer : End::None};
    }};
    launchWith(printer.port(), {}, Quick);
    PrintStation peer = station();
    QCOMPARE(peer.createSession().status, 0);
    for (const char* uid : {"1.2.3.200", "1.2.3.201"}) {
        const auto film = peer.createFilm("STANDARD\\1,1", {{DCM_FilmOrientation, "PORTRAIT"}}, uid);
        QCOMPARE(peer.setImage(film.references(DCM_ReferencedImageBoxSequence).at(0), 1).status, 0);
    }
    QCOMPARE(peer.printSession().status, 0);
    EVENTUALLY(areAll(Done, 1));
    QCOMPARE(printer.prints(), 2);
    QCOMPARE(printer.requests(CommandField::NCreate, UID_BasicFilmBoxSOPClass).size(), 3U);
    // Each is deleted before the next is made.
    QCOMPARE(printer.requests(CommandField::NDelete, UID_BasicFilmBoxSOPClass).size(), 2U);
}

void FilmPrinterTest::givesUpWhenThePrintersJobFails() {
    ScriptedPrinter printer{[](const Request& request) {
        Answer answer{.jobStatus = "PRINTING"};
        if (request.is(CommandField::NGet, UID_PrintJobSOPClass))
            answer.after = {{UID_PrintJobSOPClass, 4, "FILM JAM"}};
        return answer;
    }};
    launchWith(printer.port(), {}, Quick);
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\1,1").status, 0);
    EVENTUALLY(areAll(GivenUp, 1));
    QVERIFY(jobs().first().error.contains(u"FILM JAM"_s));
    QCOMPARE(printer.prints(), 1);
    retryJobs();
    EVENTUALLY(areAll(Done, 1));
    QCOMPARE(printer.prints(), 1);
}

void FilmPrinterTest::tellsFailureOfItsJobs() {
    ScriptedPrinter printer{[](const Request& request) {
        return Answer{.status = static_cast<std::uint16_t>(isPrint(request) ? 0xc603 : 0)};
    }};
    launchWith(printer.port());
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\1,1").status, 0);
    int last = 0;
    while (last != 4) {
        const auto event = peer.nextEvent();
        QVERIFY(event.has_value());
        QVERIFY(event->type > last && event->type != 3);
        last = event->type;
    }
    QVERIFY(!spooled().isEmpty());  // until somebody drops it
}

void FilmPrinterTest::readsItsRowWhenItBegins() {
    ScriptedPrinter printer;
    launchWith(unusedPort(), {}, Quick);
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\1,1").status, 0);
    EVENTUALLY(areAll(Waiting, 1) && jobs().first().error.contains(u"cannot be reached"_s));
    daemon_->database.run(u"UPDATE Printers SET Port=?, Medium='PAPER'"_s, {printer.port()});
    EVENTUALLY(areAll(Done, 1));
    QCOMPARE(printer.requests(CommandField::NCreate, UID_BasicFilmSessionSOPClass)
                 .at(0)
                 .attributes.text(DCM_MediumType)
                 .value_or(""),
             std::string{"PAPER"});
    daemon_->database.run(u"DELETE FROM Printers"_s);
    QCOMPARE(peer.printFilm().status, 0);
    EVENTUALLY(jobs().size() == 2 && jobs().at(1).state == GivenUp);
    QVERIFY(jobs().at(1).error.contains(u"no printer of this name"_s));
}

}  // namespace

QTEST_GUILESS_MAIN(FilmPrinterTest)
#include "tst_filmprinter.moc"
