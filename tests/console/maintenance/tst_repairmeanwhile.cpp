// The repair on an archive that others use meanwhile: the server, the main window, the user at a box.

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTest>
#include <thread>

#include "console/maintenance/frmRepairDB.h"
#include "console/session/Globals.h"
#include "tests/console/maintenance/RepairTest.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::test;

class RepairMeanwhileTest : public RepairTest {
    Q_OBJECT

  private Q_SLOTS:
    void theMainWindowStaysUsable();
    void closingTheMainWindowEndsThePassAndTheConsole();
    void aServerThatWritesMeanwhileDoesNoHarm();
    void nothingIsLockedWhileABoxWaits();
    void nothingIsLockedWhileADialogWaitsInTheMiddleOfTheReading();
    void anImageThatMovedSinceItWasReadStays();
    void whatHappensWhileABoxStandsCounts_data();
    void whatHappensWhileABoxStandsCounts();
    void aWriterAtTheMomentOfARemovalCounts_data();
    void aWriterAtTheMomentOfARemovalCounts();
};

void RepairMeanwhileTest::theMainWindowStaysUsable() {
    archive().addWholePatient(1, 2);
    afterFirstRow([this] {
        window().click(u"cmdFTPAdd"_s);  // a modal dialog in the middle of the pass
    });
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        for (const auto& name :
             {u"txtName"_s, u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s})
            form.type(name, u"x"_s);
        form.click(u"cmdOk"_s);
    });
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT Host FROM FtpNodes WHERE Name='x'"_s), u"x"_s);
}

void RepairMeanwhileTest::closingTheMainWindowEndsThePassAndTheConsole() {
    archive().addPatient(1);
    archive().addPatient(2);
    afterFirstRow([this] { manager().close(); });
    BoxScript script;  // and no question comes
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), 0);
    QCOMPARE(archive().keys(), QStringList{u"patient 2"_s});
    QVERIFY(Globals::DbConnection().isOpen());
}

void RepairMeanwhileTest::aServerThatWritesMeanwhileDoesNoHarm() {
    archive().addWholePatient(1, 1);
    const QStringList before = archive().keys();
    for (const QString& image : {u"a"_s, u"b"_s, u"c"_s})
        archive().addImage(image, u"gone"_s);
    afterFirstRow([this] {
        // What arrives while the pass runs is not walked, and its series is not taken for an empty one.
        archive().addSeries(u"new series"_s, u"1.1"_s);
        archive().addImage(u"new image"_s, u"new series"_s);
        archive().addFile(u"1.1"_s, u"new series"_s, u"new image"_s);
    });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(!takeConsoleEnd());
    QStringList after = before + QStringList{u"image new image"_s, u"series new series"_s};
    after.sort();
    QCOMPARE(archive().keys(), after);
}

void RepairMeanwhileTest::nothingIsLockedWhileABoxWaits() {
    archive().addWholePatient(1, 1);
    archive().addImage(u"lost"_s, u"1.1.1"_s);
    database().run(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
    QString busy;
    const RepairUser user{[&](const QString& text) {
                              if (text != Missing)
                                  return QMessageBox::No;
                              database().run(u"UPDATE SiteData SET Organization='x'"_s);
                              busy = database().value(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
                              return QMessageBox::Ok;
                          },
                          [] {}};
    repair();
    QCOMPARE(busy, u"0"_s);  // a reader that held the log would make it 1
    QCOMPARE(database().value(u"SELECT count(*) FROM Image"_s), u"4"_s);
}

void RepairMeanwhileTest::nothingIsLockedWhileADialogWaitsInTheMiddleOfTheReading() {
    // So many that the pass lets events in before it has read them all.
    constexpr int Images = 250;
    for (int image = 0; image < Images; ++image)
        archive().addImage(QString::number(image), u"gone"_s);
    database().run(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
    bool reading = false;
    afterFirstRow([&] {
        reading = database().value(u"SELECT count(*) FROM Image"_s) == QString::number(Images);
        database().run(
            u"UPDATE SiteData SET Organization='x'"_s);  // a server's write since the reading began
        window().click(u"cmdFTPAdd"_s);
    });
    QString busy;
    BoxScript script;
    script.drive(u"FTPNode"_s, [&](Form form) {
        busy = database().value(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
        archive().addImage(u"late"_s, u"gone"_s);
        for (const auto& name :
             {u"txtName"_s, u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s})
            form.type(name, u"x"_s);
        form.click(u"cmdOk"_s);
    });
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(reading);
    QCOMPARE(busy, u"0"_s);
    QCOMPARE(database().value(u"SELECT Host FROM FtpNodes WHERE Name='x'"_s), u"x"_s);
    QCOMPARE(archive().keys(), QStringList{});  // the late one too: the reading began anew
}

void RepairMeanwhileTest::anImageThatMovedSinceItWasReadStays() {
    archive().addWholePatient(1, 1);
    archive().addImage(u"moved"_s, u"1.1.1"_s);
    archive().addImage(u"moved, lost"_s, u"1.1.1"_s);
    archive().addImage(u"renamed, lost"_s, u"1.1.1"_s);
    archive().addImage(u"moved, astray"_s, u"1.1.1"_s);
    const QStringList before = archive().keys();
    afterFirstRow([this] {
        // As the server does it when the instance comes again in another series: the old file is gone.
        archive().addFile(u"1.1"_s, u"1.1.2"_s, u"moved"_s);
        database().run(u"UPDATE Image SET SeriesInstanceUID='1.1.2' WHERE SOPInstanceUID LIKE 'moved%'"_s);
        database().run(u"UPDATE Image SET SeriesInstanceUID='none' WHERE SOPInstanceUID='moved, astray'"_s);
        database().run(u"UPDATE Image SET ImageFile='other' WHERE SOPInstanceUID='renamed, lost'"_s);
    });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));  // and no box before it
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), before);
}

void RepairMeanwhileTest::whatHappensWhileABoxStandsCounts_data() {
    QTest::addColumn<QString>("statement");
    QTest::addColumn<bool>("fileComes");
    QTest::addColumn<bool>("kept");
    const QString none;
    QTest::newRow("nothing") << none << false << false;
    QTest::newRow("the file comes back") << none << true << true;
    QTest::newRow("the instance is stored again")
        << u"UPDATE Image SET InstanceNumber='2' WHERE SOPInstanceUID='lost'"_s << true << true;
    QTest::newRow("the image moves to a series that has its file")
        << u"UPDATE Image SET SeriesInstanceUID='1.1.2', ImageFile='1.1.2.1' WHERE SOPInstanceUID='lost'"_s
        << false << true;
    QTest::newRow("the image moves, and lacks its file there too")
        << u"UPDATE Image SET SeriesInstanceUID='1.1.2' WHERE SOPInstanceUID='lost'"_s << false << true;
    QTest::newRow("somebody else deletes the row")
        << u"DELETE FROM Image WHERE SOPInstanceUID='lost'"_s << true << false;
    QTest::newRow("its series goes") << u"DELETE FROM Series WHERE SeriesInstanceUID='1.1.1'"_s << false
                                     << false;
}

void RepairMeanwhileTest::whatHappensWhileABoxStandsCounts() {
    QFETCH(QString, statement);
    QFETCH(bool, fileComes);
    QFETCH(bool, kept);
    archive().addWholePatient(1, 1);
    archive().addImage(u"lost"_s, u"1.1.1"_s);
    int boxes = 0;
    const RepairUser user{[&](const QString& text) {
        if (text != Missing)
            return QMessageBox::No;
        ++boxes;
        if (!statement.isEmpty())
            database().run(statement);
        if (fileComes)
            archive().addFile(u"1.1"_s, u"1.1.1"_s, u"lost"_s);
        return QMessageBox::Ok;
    }};
    repair();
    QCOMPARE(boxes, 1);
    QVERIFY(!takeConsoleEnd());
    QCOMPARE(archive().keys().contains(u"image lost"_s), kept);
}

void RepairMeanwhileTest::aWriterAtTheMomentOfARemovalCounts_data() {
    QTest::addColumn<QString>("statement");
    QTest::newRow("the image moves")
        << u"UPDATE Image SET SeriesInstanceUID='1.1.2', ImageFile='1.1.2.1' WHERE SOPInstanceUID='lost'"_s;
    QTest::newRow("the series gets an image")
        << u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile) VALUES ('new', 'empty', 'new')"_s;
    QTest::newRow("the study gets a series")
        << u"INSERT INTO Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir) VALUES ('new', 'bare', 'new')"_s;
    QTest::newRow("the patient gets a study")
        << u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES ('new', 7, 'new')"_s;
}

void RepairMeanwhileTest::aWriterAtTheMomentOfARemovalCounts() {
    // The server's transaction is under way when the row is judged, and ends while its removal waits.
    QFETCH(QString, statement);
    archive().addWholePatient(1, 1);
    archive().addImage(u"lost"_s, u"1.1.1"_s);
    archive().addSeries(u"empty"_s, u"1.1"_s);
    archive().addStudy(u"bare"_s, 1);
    archive().addPatient(7);
    maintenance::frmRepairDB form{manager(), nullptr};
    database().run(u"BEGIN IMMEDIATE"_s);
    database().run(statement);
    std::thread server;
    const auto commitSoon = [&] {
        server = std::thread{[this] {
            std::this_thread::sleep_for(300ms);
            database().run(u"COMMIT"_s);
        }};
    };
    const RepairUser user{[&](const QString& /*text*/) {
        commitSoon();
        return QMessageBox::Ok;
    }};
    if (statement.startsWith(u"UPDATE Image"_s)) {
        form.CheckImages();
    } else {
        commitSoon();
        if (statement.startsWith(u"INSERT INTO Image"_s))
            form.CheckSeries();
        else if (statement.startsWith(u"INSERT INTO Series"_s))
            form.CheckStudies();
        else
            form.CheckPatients();
    }
    server.join();
    QCOMPARE(database().rows(u"SELECT count(*) FROM Image WHERE SOPInstanceUID='lost' UNION ALL "
                             "SELECT count(*) FROM Series WHERE SeriesInstanceUID='empty' UNION ALL "
                             "SELECT count(*) FROM Study WHERE StudyInstanceUID='bare' UNION ALL "
                             "SELECT count(*) FROM Patient WHERE ID=7"_s),
             (QList<QStringList>{{u"1"_s}, {u"1"_s}, {u"1"_s}, {u"1"_s}}));
}

QTEST_MAIN(RepairMeanwhileTest)
#include "tst_repairmeanwhile.moc"
