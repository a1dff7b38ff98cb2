#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include "tests/tessalyd/services/print/PrintTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::dicom::CommandField;

namespace {

/// What stations are answered: the statuses of PS3.4, H.2.4 and H.4.
class PrintRequestsTest : public PrintTest {
    Q_OBJECT

  private Q_SLOTS:
    void acceptsAllContexts_data();
    void acceptsAllContexts();
    void refusesWhoMayNotPrint();
    void refusesWithoutAPrinter();
    void goesOnWithoutTheTables();
    void choosesThePrinter();
    void answersForThePrinter();
    void warnsOfWhatItCannotUse();
    void warnsOfDensities();
    void requiresWhatIsMandatory();
    void takesEveryDisplayFormat_data();
    void takesEveryDisplayFormat();
    void printsNothingWithoutImages();
    void knowsItsInstances();
    void setsAndDeletes();
    void refusesWithoutRoom();
    void forgetsWhatWasNotPrinted();
};

void PrintRequestsTest::acceptsAllContexts_data() {
    QTest::addColumn<QString>("syntax");
    QTest::newRow("implicit") << UID_LittleEndianImplicitTransferSyntax;
    QTest::newRow("explicit") << UID_LittleEndianExplicitTransferSyntax;
}

void PrintRequestsTest::acceptsAllContexts() {
    QFETCH(const QString, syntax);
    ScriptedPrinter printer{{}, ScriptedPrinter::everything(), {syntax.toStdString()}};
    launchWith(printer.port());
    const std::string uid = syntax.toStdString();
    {
        PrintStation peer{daemon_->port(), "STATION", "TESSALY", PrintStation::everything(uid.c_str())};
        for (int i = 0; i < 6; ++i)
            QCOMPARE(peer.association().accepted(i), uid);
        QCOMPARE(peer.printAll("STANDARD\\1,2").status, 0);
        peer.release();
    }
    const auto all = PrintStation::everything(uid.c_str());
    PrintStation colour{daemon_->port(), "STATION", "TESSALY", {all[1]}};
    QCOMPARE(colour.printAll("STANDARD\\1,1", PrintImage::colour()).status, 0);
    colour.release();
    EVENTUALLY(areAll(2, 2));
    const auto images = printer.requests(CommandField::NSet, UID_BasicColorImageBoxSOPClass);
    QCOMPARE(images.size(), 1U);
    QCOMPARE(images.front().pixels, PrintImage::colour().content());
    RequestorAssociation bigEndian{daemon_->port(), "STATION", "TESSALY",
                                   PrintStation::everything(UID_BigEndianExplicitTransferSyntax)};
    QCOMPARE(bigEndian.accepted(0), std::string{});
}

void PrintRequestsTest::refusesWhoMayNotPrint() {
    launchWith(unusedPort());
    PrintStation stranger{daemon_->port(), "STRANGER"};
    QCOMPARE(stranger.createSession().status, 0x0124);
    QCOMPARE(stranger.request(CommandField::NGet, UID_PrinterSOPClass, UID_PrinterSOPInstance).status,
             0x0124);
    QVERIFY(daemon_->log().contains(u"no node with this AE title may print"_s));
}

void PrintRequestsTest::refusesWithoutAPrinter() {
    launchWith(unusedPort());
    daemon_->database.run(u"DELETE FROM Printers"_s);
    PrintStation peer = PrintStation{daemon_->port()};
    const auto refused = peer.createSession();
    QCOMPARE(refused.status, 0x0110);
    QVERIFY(!refused.comment.empty());
    QVERIFY(daemon_->log().contains(u"No printer has this title"_s));
}

void PrintRequestsTest::goesOnWithoutTheTables() {
    launchWith(unusedPort());
    daemon_->database.run(u"ALTER TABLE Printers RENAME TO Gone"_s);
    PrintStation peer = station();
    QCOMPARE(peer.createSession().status, 0x0110);
    daemon_->database.run(u"ALTER TABLE Gone RENAME TO Printers"_s);
    QCOMPARE(peer.createSession().status, 0);
}

void PrintRequestsTest::choosesThePrinter() {
    launchWith(unusedPort());
    addPrinter(u"Laser"_s, unusedPort(), {{u"AETitle"_s, u"LASER_AE"_s}});
    addPrinter(u"PAPER"_s, unusedPort(), {{u"AETitle"_s, u"Laser"_s}});
    const auto printerOf = [this](const char* called) {
        PrintStation peer{daemon_->port(), "STATION", called};
        return peer.request(CommandField::NGet, UID_PrinterSOPClass, UID_PrinterSOPInstance)
            .text(DCM_PrinterName);
    };
    QCOMPARE(printerOf("laser"), u"Laser"_s);  // a name, whatever its case, before an AE title
    QCOMPARE(printerOf("LASER_AE"), u"Laser"_s);
    QCOMPARE(printerOf("Paper"), u"PAPER"_s);
    QCOMPARE(printerOf("TESSALY"), u"Film"_s);
}

void PrintRequestsTest::answersForThePrinter() {
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    const auto status = [&peer] {
        return peer.request(CommandField::NGet, UID_PrinterSOPClass, UID_PrinterSOPInstance);
    };
    const auto unreachable = status();
    QCOMPARE(unreachable.status, 0);
    QCOMPARE(unreachable.text(DCM_PrinterStatus), u"WARNING"_s);
    QVERIFY(!unreachable.text(DCM_PrinterStatusInfo).isEmpty());
    for (const DcmTagKey& tag : {DCM_PrinterName, DCM_Manufacturer, DCM_ManufacturerModelName,
                                 DCM_SoftwareVersions, DCM_DateOfLastCalibration, DCM_TimeOfLastCalibration})
        QVERIFY(!unreachable.text(tag).isEmpty());
    QCOMPARE(peer.printAll("STANDARD\\1,1").status, 0);  // taken all the same
    ScriptedPrinter printer;
    daemon_->database.run(u"UPDATE Printers SET Port=?"_s, {printer.port()});
    PrintStation other = PrintStation{daemon_->port()};
    other.setContext(5);  // Printer alone
    const auto normal = other.request(CommandField::NGet, UID_PrinterSOPClass, UID_PrinterSOPInstance);
    QCOMPARE(normal.text(DCM_PrinterStatus), u"NORMAL"_s);
    QCOMPARE(other.request(CommandField::NGet, UID_PrinterSOPClass, "1.2.3").status, 0x0112);
}

void PrintRequestsTest::warnsOfWhatItCannotUse() {
    ScriptedPrinter printer;
    launchWith(printer.port(),
               {{u"Priority"_s, u"LOW"_s}, {u"Orientation"_s, u"LANDSCAPE"_s}, {u"Copies"_s, 2}});
    PrintStation peer = PrintStation{daemon_->port()};
    const auto session = peer.createSession(
        {{DCM_PrintPriority, "URGENT"}, {DCM_NumberOfCopies, "0"}, {DCM_MediumType, "PAPER"}});
    QCOMPARE(session.status, 0x0116);
    QCOMPARE(session.text(DCM_PrintPriority), u"LOW"_s);
    QCOMPARE(session.text(DCM_NumberOfCopies), u"2"_s);
    QCOMPARE(session.text(DCM_MediumType), u"PAPER"_s);
    const auto film =
        peer.createFilm("STANDARD\\1,1", {{DCM_FilmOrientation, "SIDEWAYS"}, {DCM_Trim, "YES"}});
    QCOMPARE(film.status, 0x0116);
    QCOMPARE(film.text(DCM_FilmOrientation), u"LANDSCAPE"_s);
    QCOMPARE(film.text(DCM_Trim), u"YES"_s);
    const auto image = peer.setImage(film.references(DCM_ReferencedImageBoxSequence).at(0), 1, {},
                                     {{DCM_Polarity, "UPSIDE"}});
    QCOMPARE(image.status, 0x0116);
    QCOMPARE(image.text(DCM_Polarity), u"NORMAL"_s);
    QCOMPARE(peer.printFilm().status, 0);
    EVENTUALLY(areAll(2, 1));
    const auto sent = printer.requests(CommandField::NCreate, UID_BasicFilmSessionSOPClass).at(0).attributes;
    QCOMPARE(sent.text(DCM_PrintPriority).value_or(""), std::string{"LOW"});
    QCOMPARE(sent.text(DCM_NumberOfCopies).value_or(""), std::string{"2"});
}

void PrintRequestsTest::warnsOfDensities() {
    launchWith(unusedPort(), {{u"MinDensity"_s, 20}, {u"MaxDensity"_s, 310}});
    PrintStation peer = PrintStation{daemon_->port()};
    QCOMPARE(peer.createSession().status, 0);
    const auto tooDark = peer.createFilm("STANDARD\\1,1", {{DCM_MaxDensity, "9000"}});
    QCOMPARE(tooDark.status, 0xb605);
    QCOMPARE(tooDark.text(DCM_MaxDensity), u"310"_s);
    const auto reversed =
        peer.createFilm("STANDARD\\1,1", {{DCM_MinDensity, "300"}, {DCM_MaxDensity, "10"}}, "1.2.3.201");
    QCOMPARE(reversed.status, 0xb605);
    QCOMPARE(reversed.text(DCM_MinDensity), u"20"_s);
    const auto fine = peer.createFilm("STANDARD\\1,1", {{DCM_MaxDensity, "290"}}, "1.2.3.202");
    QCOMPARE(fine.status, 0);
    QCOMPARE(fine.text(DCM_MaxDensity), u"290"_s);
}

void PrintRequestsTest::requiresWhatIsMandatory() {
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    QCOMPARE(peer.createSession().status, 0);
    QCOMPARE(peer.createSession().status, 0x0111);
    QCOMPARE(peer.createFilm("").status, 0x0120);
    QCOMPARE(peer.createFilm("STANDARD\\1,1", {}, "1.2.3.200", "").status, 0x0120);
    QCOMPARE(peer.createFilm("STANDARD\\1,1", {}, "1.2.3.200", "1.2.3.999").status, 0x0106);
    QCOMPARE(peer.printSession().status, 0xc600);  // none of them has left a film
    QCOMPARE(peer.createFilm("STANDARD\\1,1").status, 0);
    QCOMPARE(peer.createFilm("STANDARD\\1,1").status, 0x0111);
}

void PrintRequestsTest::takesEveryDisplayFormat_data() {
    QTest::addColumn<QString>("format");
    QTest::addColumn<int>("boxes");
    QTest::newRow("columns and rows") << uR"(STANDARD\4,6)"_s << 24;
    QTest::newRow("rows") << uR"(ROW\2,3,1)"_s << 6;
    QTest::newRow("columns") << uR"(COL\1,2)"_s << 3;
    QTest::newRow("most") << uR"(STANDARD\8,8)"_s << 64;
    QTest::newRow("too many") << uR"(STANDARD\8,9)"_s << -1;
    QTest::newRow("huge") << uR"(STANDARD\65536,65537)"_s << -1;
    QTest::newRow("none") << uR"(STANDARD\0,1)"_s << -1;
    QTest::newRow("negative") << uR"(STANDARD\-1,-1)"_s << -1;
    QTest::newRow("one number") << uR"(STANDARD\2)"_s << -1;
    QTest::newRow("three numbers") << uR"(STANDARD\1,1,1)"_s << -1;
    QTest::newRow("slides") << u"SLIDE"_s << -1;
    QTest::newRow("another") << uR"(CUSTOM\1)"_s << -1;
    QTest::newRow("too many rows") << u"ROW\\"_s + u"1,"_s.repeated(64) + u"1"_s << -1;
}

void PrintRequestsTest::takesEveryDisplayFormat() {
    QFETCH(const QString, format);
    QFETCH(const int, boxes);
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    QCOMPARE(peer.createSession().status, 0);
    const auto film = peer.createFilm(format.toStdString());
    QCOMPARE(film.status, boxes < 0 ? 0x0106 : 0);
    QCOMPARE(static_cast<int>(film.references(DCM_ReferencedImageBoxSequence).size()), std::max(boxes, 0));
}

void PrintRequestsTest::printsNothingWithoutImages() {
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    QCOMPARE(peer.createSession().status, 0);
    QCOMPARE(peer.printSession().status, 0xc600);
    QCOMPARE(peer.createFilm("STANDARD\\1,1").status, 0);
    QCOMPARE(peer.printSession().status, 0xb602);
    QCOMPARE(peer.printFilm().status, 0xb603);
    QVERIFY(jobs().isEmpty());
}

void PrintRequestsTest::knowsItsInstances() {
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    QCOMPARE(prepare(peer).empty(), false);
    QCOMPARE(peer.printFilm("1.2.3.999").status, 0x0112);
    QCOMPARE(peer.printSession("1.2.3.999").status, 0x0112);
    QCOMPARE(peer.request(CommandField::NAction, UID_BasicFilmBoxSOPClass, "1.2.3.200", nullptr, 2).status,
             0x0123);
    QCOMPARE(
        peer.request(CommandField::NAction, UID_BasicFilmSessionSOPClass, "1.2.3.100", nullptr, 7).status,
        0x0123);
    QCOMPARE(peer.request(CommandField::NGet, UID_PrintJobSOPClass, "1.2.3.999").status, 0x0112);
    QCOMPARE(peer.request(CommandField::NSet, UID_BasicColorImageBoxSOPClass, "1.2.3.200").status, 0x0118);
    QCOMPARE(peer.request(CommandField::NCreate, UID_CTImageStorage, "1.2.3.200").status, 0x0118);
    QCOMPARE(peer.request(CommandField::NDelete, UID_BasicGrayscaleImageBoxSOPClass, "1.2.3.200").status,
             0x0211);
    // Without a UID it gets one of the site's.
    daemon_->database.run(u"UPDATE SiteData SET BaseUID='1.2.826.0.1.3680043.77'"_s);
    PrintStation other = PrintStation{daemon_->port()};
    const auto named = other.createSession({}, "");
    QCOMPARE(named.status, 0);
    QVERIFY2(named.instance.starts_with("1.2.826.0.1.3680043.77."), named.instance.c_str());
    QVERIFY(named.instance.size() <= 64);
}

void PrintRequestsTest::setsAndDeletes() {
    ScriptedPrinter printer;
    launchWith(printer.port());
    PrintStation peer = PrintStation{daemon_->port()};
    const std::string box = prepare(peer);
    DcmDataset copies;
    copies.putAndInsertString(DCM_NumberOfCopies, "4");
    const auto session = peer.request(CommandField::NSet, UID_BasicFilmSessionSOPClass, "1.2.3.100", &copies);
    QCOMPARE(session.status, 0);
    QCOMPARE(session.text(DCM_NumberOfCopies), u"4"_s);
    DcmDataset border;
    border.putAndInsertString(DCM_BorderDensity, "WHITE");
    QCOMPARE(peer.request(CommandField::NSet, UID_BasicFilmBoxSOPClass, "1.2.3.200", &border).status, 0);
    QCOMPARE(peer.setImage(box, 1).status, 0);
    QCOMPARE(peer.printSession().status, 0);
    EVENTUALLY(areAll(2, 1));
    QCOMPARE(printer.requests(CommandField::NCreate, UID_BasicFilmSessionSOPClass)
                 .at(0)
                 .attributes.text(DCM_NumberOfCopies)
                 .value_or(""),
             std::string{"4"});
    QCOMPARE(printer.requests(CommandField::NCreate, UID_BasicFilmBoxSOPClass)
                 .at(0)
                 .attributes.text(DCM_BorderDensity)
                 .value_or(""),
             std::string{"WHITE"});
    QCOMPARE(peer.request(CommandField::NDelete, UID_BasicFilmBoxSOPClass, "1.2.3.200").status, 0);
    QCOMPARE(peer.setImage(box, 1).status, 0x0112);
    QCOMPARE(peer.request(CommandField::NDelete, UID_BasicFilmBoxSOPClass, "1.2.3.200").status, 0x0112);
    QCOMPARE(peer.createFilm("STANDARD\\1,1").status, 0);
    QCOMPARE(peer.request(CommandField::NDelete, UID_BasicFilmSessionSOPClass, "1.2.3.100").status, 0);
    QCOMPARE(peer.printFilm().status, 0x0112);
}

void PrintRequestsTest::refusesWithoutRoom() {
    launchWith(unusedPort());
    PrintStation peer = PrintStation{daemon_->port()};
    const std::string box = prepare(peer);
    QCOMPARE(peer.setImage(box, 1).status, 0);
    daemon_->database.failOn(u"Job"_s, u"INSERT"_s);
    QCOMPARE(peer.printFilm().status, 0xc602);
    QCOMPARE(peer.printSession().status, 0xc601);
    daemon_->database.allow(u"Job"_s, u"INSERT"_s);
    QCOMPARE(peer.printFilm().status, 0);
    QCOMPARE(jobs().size(), 1);
}

void PrintRequestsTest::forgetsWhatWasNotPrinted() {
    launchWith(unusedPort());
    for (const bool isReleased : {true, false}) {
        PrintStation peer = PrintStation{daemon_->port()};
        const std::string box = prepare(peer);
        QCOMPARE(peer.setImage(box, 1).status, 0);
        QVERIFY(!spooled().isEmpty());
        if (isReleased)
            peer.release();
        else
            peer.association().abort();
        EVENTUALLY(spooled().isEmpty());
    }
    {
        PrintStation peer = PrintStation{daemon_->port()};
        const std::string box = prepare(peer);
        QCOMPARE(peer.setImage(box, 1).status, 0);
        daemon_->kill();
    }
    QVERIFY(!spooled().isEmpty());
    daemon_->launch();
    EVENTUALLY(spooled().isEmpty());
    QVERIFY(jobs().isEmpty());
}

}  // namespace

QTEST_GUILESS_MAIN(PrintRequestsTest)
#include "tst_printrequests.moc"
